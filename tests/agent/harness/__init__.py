"""Real processes and real protocols for the agent tests: the switch, the agent, clients."""
