# SPDX-License-Identifier: Apache-2.0
"""Writing the seeds of a fuzz target."""

import os
import sys


def write(seeds):
    """Writes the seeds, bytes by name, as files into the folder named on the command line."""
    folder = sys.argv[1]
    os.makedirs(folder, exist_ok=True)
    for name, data in seeds.items():
        with open(os.path.join(folder, name), "wb") as file:
            file.write(data)
