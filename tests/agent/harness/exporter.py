# SPDX-License-Identifier: Apache-2.0
"""prometheus-snmp-exporter as a test uses it, and what it says of a switch."""

import re
import shutil
import subprocess
import urllib.error
import urllib.parse
import urllib.request
from pathlib import Path

from .build import BUILD, REPOSITORY
from .process import LoggedProcess

MAKE_CONFIG = REPOSITORY / "monitoring" / "make_config.sh"
PACKAGE = "prometheus-snmp-exporter"
SAMPLE = re.compile(r"(\w+)(?:\{(.*)\})? (\S+)")
LABEL = re.compile(r'(\w+)="([^"\\]*)"')


def make_config(*options):
    """The finished make_config.sh for the build under test."""
    assert shutil.which(PACKAGE), f"the package {PACKAGE} is not installed"
    return subprocess.run([MAKE_CONFIG, "--build", BUILD, *map(str, options)], capture_output=True, text=True,
                          timeout=60, stdin=subprocess.DEVNULL)


class ScrapeFailed(Exception):
    """The exporter had an error to report, and nothing else."""


class Exporter:
    """The exporter on a free loopback port, with a configuration of its own."""

    def __init__(self, folder, auth=None):
        self.configuration = Path(folder) / "snmp.yml"
        options = ["--output", self.configuration]
        if auth is not None:
            path = Path(folder) / "auth.yml"
            path.touch(mode=0o600)
            path.write_text(auth)
            options += ["--auth", path]
        done = make_config(*options)
        assert (done.returncode, done.stderr) == (0, ""), done
        self.process = LoggedProcess(command(self.configuration))
        self.port = listening_port(self.process)

    def finish(self):
        self.process.kill()

    def page(self, path, **parameters):
        """The text of one of its pages."""
        address = f"http://127.0.0.1:{self.port}/{path}?{urllib.parse.urlencode(parameters)}"
        try:
            with urllib.request.urlopen(address, timeout=60) as answer:
                return answer.read().decode()
        except urllib.error.HTTPError as failure:
            raise ScrapeFailed(failure.read().decode()) from None

    def scrape(self, agent, module="vsan"):
        """The page of metrics of an agent."""
        return self.page("snmp", module=module, target=agent.address)


def command(configuration, listen="127.0.0.1:0"):
    return [PACKAGE, f"--config.file={configuration}", f"--web.listen-address={listen}"]


def listening_port(process):
    return int(process.wait_line(r'msg="Listening on" address=127\.0\.0\.1:(\d+)').group(1))


def samples(page):
    """{(metric, its labels as a frozen set of pairs): value}, without the exporter's own."""
    found = {}
    for line in page.splitlines():
        if not line.startswith(("#", "snmp_scrape_")):
            name, labels, value = SAMPLE.fullmatch(line).groups()
            key = name, frozenset(LABEL.findall(labels or ""))
            assert key not in found, line
            found[key] = float(value)
    return found


def described(page):
    """{metric: (its type, its help text)}, without the exporter's own."""
    kinds = dict(re.findall(r"^# TYPE (\w+) (.*)$", page, re.M))
    helps = dict(re.findall(r"^# HELP (\w+) (.*)$", page, re.M))
    assert kinds.keys() == helps.keys()
    return {name: (kinds[name], helps[name]) for name in kinds if not name.startswith("snmp_scrape_")}
