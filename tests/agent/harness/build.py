# SPDX-License-Identifier: Apache-2.0
"""Where the build under test is, and what it was configured with."""

import os
import re
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[3]
BUILD = Path(os.environ.get("BUILD_DIR", REPOSITORY / "build")).resolve()
LIBRARIES = BUILD / "lib"
PROGRAMS = BUILD / "bin"
MIBS = BUILD / "mibs"

MODULE = LIBRARIES / "libvsanmib.so"
EXTENSION = LIBRARIES / "libnetsnmpagent_oryx.so"
SWITCH_LIBRARY = LIBRARIES / "libswitchmib.so"
PORTED_MODULE = BUILD / "tests/porting/libported_vsanmib.so"  # built against a maker's headers

# Put into the agent's environment only. Code built with a sanitizer needs its
# runtime to be there before anything else when the agent itself has none.
AGENT_PRELOAD = os.environ.get("SNMPD_PRELOAD", "")

# A program that runs the agent and the switch, with its options: one that checks memory, say.
RUN_UNDER = os.environ.get("RUN_UNDER", "").split()


def cached_setting(name, default):
    """A CMake cache entry of the build, or the default when there is no cache."""
    cache = BUILD / "CMakeCache.txt"
    if cache.exists():
        found = re.search(rf"^{name}:\w+=(.*)$", cache.read_text(), re.MULTILINE)
        if found:
            return found.group(1)
    return default


ENTERPRISE = int(cached_setting("VENDOR_PEN", "32473"))
