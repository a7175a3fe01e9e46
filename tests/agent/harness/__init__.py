# SPDX-License-Identifier: Apache-2.0
"""Real processes and real protocols for the agent tests: the switch, the agent, clients."""
