# SPDX-License-Identifier: Apache-2.0
"""Monitoring as docs/monitoring.md sets it up: what the real exporter says of a switch, what it
says when there is nothing to say, and the commands of that page."""

import os
import re
import shutil
import stat
import subprocess

import pytest

from harness.agent import free_udp_port
from harness.build import BUILD, MIBS, PROGRAMS, REPOSITORY
from harness.clients import NetSnmp
from harness.exporter import Exporter, ScrapeFailed, command, described, listening_port, make_config, samples
from harness.interfaces import AS_A_SWITCH
from harness.notifications import wait_until_subscribed
from harness.oids import ARCS, NAMES, dotted, scalar
from harness.operator_tool import OperatorTool
from harness.process import LoggedProcess
from harness.transcript import adapted, blocks, follow, steps

PAGE = "docs/monitoring.md"
MONITORING = REPOSITORY / "monitoring"
# In labels, and left out.
NO_METRIC = {"vsanName", "vsanRowStatus", "vsanIfDenyList", "vsanFcTimerForceFlag"}
INFO = {"vsanMediaType", "vsanLoadBalancingType", "vsanInterOperType", "vsanInorderDelivery", "fcInorderDelivery"}
ADMIN_STATES = ("active", "suspended", "notConfigured", "configured")
OPER_STATES = ("up", "down")
NO_INTEROP = 100
CLOCKS = ("sysUpTime", "vsanTableLastChange")
AUTH = """version: 3
auth:
  username: {user}
  security_level: authPriv
  auth_protocol: SHA
  password: {password}
  priv_protocol: AES
  priv_password: {privacy}
"""
ALICE = {"user": "alice", "password": "alice-auth-secret", "privacy": "alice-priv-secret"}


@pytest.fixture(scope="module")
def exporter(started_for_file):
    """One for all that come as `public`: it keeps nothing from one scrape to the next."""
    return started_for_file.add(Exporter(started_for_file.folders.make()))


@pytest.fixture
def start_exporter(started):
    return lambda more="", **login: started.add(Exporter(started.folders.make(), AUTH.format(**login) + more))


def expected(switch, has_names=True):
    """The metrics of a switch, made from what its operator is told, but for the clocks. `has_names`
    when its agent names the ports."""
    tool = OperatorTool(switch)
    state, timers = tool.json("show"), tool.json("timers", "show")
    metrics = {}

    def add(name, value=1, **labels):
        metrics[name, frozenset(labels.items())] = value

    def truth(value):
        return "true" if value else "false"

    add("vsanNumber", len(state["vsanList"]))
    add("vsanIfNumber", len(state["portList"]))
    add("fcNetworkLatency", timers["networkLatency"])
    add("fcSwitchLatency", timers["switchLatency"])
    add("fcInorderDelivery_info", fcInorderDelivery=truth(timers["inorderDelivery"]))
    for timer, value in timers["switch"].items():
        add(f"fcTimer{timer.title()}", value)
    names = {}
    for vsan in state["vsanList"]:
        row = names[vsan["id"]] = {"vsanIndex": str(vsan["id"]), "vsanName": vsan["name"]}
        for name in ADMIN_STATES:
            add("vsanAdminState", int(vsan["state"] == name), vsanAdminState=name, **row)
        for name in OPER_STATES:
            add("vsanOperState", int(vsan["oper"] == name), vsanOperState=name, **row)
        interop = "default" if vsan["interop"] == NO_INTEROP else f"mode{vsan['interop']}"
        add("vsanInterOperType_info", vsanInterOperType=interop, **row)
        add("vsanLoadBalancingType_info", vsanLoadBalancingType=vsan["loadBalancing"], **row)
        add("vsanInorderDelivery_info", vsanInorderDelivery=truth(vsan["inorderDelivery"]), **row)
        add("vsanMediaType_info", vsanMediaType="fibreChannel", **row)
        add("vsanMtu", vsan["mtu"], **row)
        add("vsanNetworkDropLatency", vsan["networkDropLatency"], **row)
    for vsan in timers["vsans"]:
        for timer, value in vsan["running"].items():
            add(f"vsanFcTimer{timer.title()}", value, **names[vsan["id"]])
    for port in state["portList"]:
        row = {"ifIndex": str(port["ifIndex"]), "ifName": port["name"] if has_names else ""}
        add("vsanIfVsan", port["vsan"], **row)
        add("vsanMembershipSummaryIfIndex", port["ifIndex"], **row, **names[port["vsan"]])
    return metrics


def without_clocks(metrics):
    return {key: value for key, value in metrics.items() if key[0] not in CLOCKS}


def test_where_the_agent_names_no_ports_they_go_by_number(exporter, operator):
    metrics = samples(exporter.scrape(operator.agent))
    assert without_clocks(metrics) == expected(operator.switch, has_names=False)


def test_metrics_are_the_state_of_the_switch_before_and_after_a_change(exporter, operator_of_switch):
    switch, agent = operator_of_switch.switch, operator_of_switch.agent
    before = samples(exporter.scrape(agent))
    assert without_clocks(before) == expected(switch)

    tool = OperatorTool(switch)
    tool("vsan", "create", 60, "--name", "archive")
    tool("vsan", "set", 20, "--state", "suspended")
    tool("vsan", "delete", 2)
    tool("port", "move", "fc1", 60)
    tool("port", "up", "fc3")
    tool("timers", "set", "ratov", 12000, "--vsan", 30)
    tool("timers", "set", "dstov", 6000)
    tool("timers", "set", "inorder-delivery", "on")
    after = samples(exporter.scrape(agent))
    assert without_clocks(after) == expected(switch)
    assert after["vsanOperState", frozenset({("vsanIndex", "60"), ("vsanName", "archive"),
                                             ("vsanOperState", "up")})] == 1
    assert not any(("vsanIndex", "2") in labels for _, labels in after)


def test_ports_are_read_as_those_of_any_switch(exporter, operator_of_switch):
    tool = OperatorTool(operator_of_switch.switch)
    tool("port", "alias", "fc2", "to the tape")
    metrics = samples(exporter.scrape(operator_of_switch.agent, "if_mib"))
    for port in tool.json("port", "list")["ports"]:
        row = frozenset({"ifIndex": str(port["ifIndex"]), "ifName": port["name"], "ifDescr": port["name"],
                         "ifAlias": port["alias"]}.items())
        assert metrics["ifOperStatus", row] == {"up": 1, "down": 2}[port["oper"]]
        assert metrics["ifHighSpeed", row] == port["speedMbps"]
        assert metrics["ifHCInOctets", row] == 0


def test_clocks_are_those_of_the_agent(exporter, operator):
    wait_until_subscribed(operator.switch, operator.agent)
    OperatorTool(operator.switch)("vsan", "create", 60)
    client = NetSnmp(operator.agent)
    for _ in range(1000):  # the agent learns of it by an event
        changed = client.get(scalar("vsanTableLastChange"))[0].value
        if changed:
            break
    metrics = samples(exporter.scrape(operator.agent))
    assert metrics["vsanTableLastChange", frozenset()] == changed > 0
    assert metrics["sysUpTime", frozenset()] >= changed


def test_every_object_is_a_metric_of_its_type_or_left_out_on_purpose(exporter, agent):
    metrics = described(exporter.scrape(agent))
    objects = {name.removesuffix("_info"): name for name in metrics}
    assert objects.keys() == set(NAMES) - NO_METRIC | {"sysUpTime"}
    for name, metric in objects.items():
        kind, text = metrics[metric]
        assert kind == "gauge"
        assert metric == (f"{name}_info" if name in INFO else name)
        oid = re.search(r" - ([\d.]+)(?: \(EnumAs\w+\))?$", text).group(1)
        assert oid == (dotted(ARCS[name])[1:] if name in ARCS else "1.3.6.1.2.1.1.3")
    assert metrics["vsanOperState"][1].startswith("Whether the VSAN carries traffic now")


def test_agent_without_its_switch_has_no_vsans_rather_than_old_ones(exporter, operator):
    switch, agent = operator.switch, operator.agent
    assert without_clocks(samples(exporter.scrape(agent)))
    switch.kill()
    assert [name for name, _ in samples(exporter.scrape(agent))] == ["sysUpTime"]
    switch.start()
    assert without_clocks(samples(exporter.scrape(agent))) == expected(switch, has_names=False)


def test_silent_agent_fails_the_scrape(exporter):
    class Nobody:
        address = f"127.0.0.1:{free_udp_port()}"

    with pytest.raises(ScrapeFailed, match="error getting target 127.0.0.1"):
        exporter.scrape(Nobody)


def test_restricted_snmpv3_user_gets_the_metrics_of_its_vsans_only(start_exporter, agent, switch):
    metrics = samples(start_exporter(**ALICE).scrape(agent))
    shown = {dict(labels)["vsanIndex"] for _, labels in metrics if "vsanIndex" in dict(labels)}
    assert shown == {"1", "30"}
    of_vsans = {key: value for key, value in metrics.items() if "vsanName" in dict(key[1])}
    assert of_vsans == {key: value for key, value in expected(switch, has_names=False).items()
                        if dict(key[1]).get("vsanIndex") in shown}


def test_passwords_are_in_files_of_their_owner_and_nowhere_else(start_exporter, agent):
    exporter = start_exporter(**ALICE)
    assert stat.S_IMODE(exporter.configuration.stat().st_mode) == 0o600
    exporter.scrape(agent)
    told = exporter.page("config") + exporter.process.text() + exporter.scrape(agent)
    assert "alice" in told
    assert "secret" not in told.replace("<secret>", "")


@pytest.mark.parametrize("wrong", [{"password": "not-the-secret"}, {"privacy": "not-the-secret"}, {"user": "nobody"}])
def test_wrong_login_fails_the_scrape(wrong, start_exporter, agent):
    exporter = start_exporter(**ALICE | wrong, more="timeout: 1s\nretries: 0\n")
    with pytest.raises(ScrapeFailed):
        exporter.scrape(agent)


@pytest.mark.parametrize("text,complaint", [
    ("auth: {usrename: x}", "field usrename not found"),
    ("walk: [system]", "field walk already set"),
    ("version: 4", "4"),
    ("version: [", "yaml"),
    ("version: 3\nauth: {security_level: authPriv, username: x}", "password is missing"),
])
def test_a_login_with_a_mistake_is_one_sentence_and_leaves_nothing(text, complaint, folder, monkeypatch):
    monkeypatch.setenv("TMPDIR", str(folder))
    auth, output = folder / "auth.yml", folder / "snmp.yml"
    auth.write_text(text)
    auth.chmod(0o600)
    output.write_text("former")
    done = make_config("--auth", auth, "--output", output)
    assert (done.returncode, done.stdout, len(done.stderr.splitlines())) == (1, "", 1)
    assert complaint in done.stderr and str(auth) in done.stderr
    assert output.read_text() == "former"
    assert {path.name for path in folder.iterdir()} == {"auth.yml", "snmp.yml"}


def test_a_login_that_others_can_read_is_refused(folder):
    auth = folder / "auth.yml"
    auth.write_text(AUTH.format(**ALICE))
    auth.chmod(0o640)
    done = make_config("--auth", auth, "--output", folder / "snmp.yml")
    assert (done.returncode, done.stdout) == (1, "")
    assert str(auth) in done.stderr and "chmod 600" in done.stderr
    assert not (folder / "snmp.yml").exists()


@pytest.mark.parametrize("options,code", [
    (["--colour", "red"], 2), (["--auth"], 2), (["--output", ""], 2), (["extra"], 2),
    (["--auth", "/nonexistent/auth.yml"], 1), (["--build", "/nonexistent"], 1),
    (["--output", "/proc/none/snmp.yml"], 1), (["--output", "/"], 1),
])
def test_what_cannot_be_done_is_one_sentence(options, code):
    done = make_config(*options)
    assert (done.returncode, done.stdout, len(done.stderr.splitlines())) == (code, "", 1), done


def test_enterprise_number_that_the_generator_cannot_read_is_named(folder):
    (folder / "mibs").mkdir()
    (folder / "mibs" / "VSAN-MIB.txt").write_text("VSAN-MIB DEFINITIONS ::= BEGIN END\n")
    (folder / "CMakeCache.txt").write_text("VENDOR_PEN:STRING=2147483648\n")
    done = make_config("--build", folder)
    assert (done.returncode, done.stdout) == (1, "")
    assert "2147483648" in done.stderr
    assert not (folder / "monitoring").exists()


def test_help_names_every_option():
    done = make_config("--help")
    assert (done.returncode, done.stderr) == (0, "")
    assert all(option in done.stdout for option in ("--auth", "--output", "--build", "--help"))


def test_alerts_speak_of_metrics_and_labels_that_there_are(exporter, agent):
    metrics = samples(exporter.scrape(agent))
    names = {name for name, _ in metrics} | {"up"}
    labels = {pair[0] for _, pairs in metrics for pair in pairs} | {"instance", "job"}
    rules = (MONITORING / "alerts.yml").read_text()
    assert len(re.findall("- alert:", rules)) == len(set(re.findall(r"- alert: (\w+)", rules))) >= 3
    assert set(re.findall(r"\$labels\.(\w+)", rules)) <= labels
    for metric, label, value in re.findall(r'(\w+)\{(\w+)="(\w+)"\}', rules):
        assert metric in names and label in labels
        assert metric == "up" or any(name == metric and (label, value) in pairs for name, pairs in metrics)
    expressions = re.sub(r'\{[^}]*\}|"', "", " ".join(re.findall(r"expr: (.*?)(?=\n        \w+:)", rules, re.S)))
    used = set(re.findall(r"\b(?:vsan|fc|sys)\w+", expressions)) - {"vsanIndex"}
    assert len(used) >= 4 and used <= names


@pytest.mark.skipif(not shutil.which("promtool"), reason="no promtool: the package prometheus is not installed")
@pytest.mark.parametrize("task", [("check", "config", "prometheus.yml"), ("test", "rules", "alerts_test.yml")])
def test_prometheus_accepts_its_files(task):
    done = subprocess.run(["promtool", *task], cwd=MONITORING, capture_output=True, text=True, timeout=60)
    assert done.returncode == 0, done.stdout + done.stderr


CURL = """#!/usr/bin/python3
import sys, urllib.request
sys.stdout.write(urllib.request.urlopen(sys.argv[-1]).read().decode())
"""


def test_a_first_look_goes_as_the_page_shows(started, folder, start_switch, start_agent):
    switch = start_switch()
    agent = start_agent(switch, **AS_A_SWITCH)
    setting_up, looking = map(steps, blocks(PAGE, "Prometheus: a first look"))
    (making, said), (starting, _) = setting_up
    output = folder / "snmp.yml"
    done = subprocess.run(["bash", "-c", f"{making} --build '{BUILD}' --output '{output}'"], cwd=REPOSITORY,
                          capture_output=True, text=True, timeout=60)
    assert done.stderr == ""
    assert done.stdout.splitlines() == [said[0].replace("/home/me/libvsanmib/build/monitoring/snmp.yml", str(output))]

    assert starting.split() == command("build/monitoring/snmp.yml", "127.0.0.1:9116")
    process = LoggedProcess(command(output))
    started.add(Killed(process))
    # Not every machine that runs this has curl.
    curl = folder / "curl"
    curl.write_text(CURL)
    curl.chmod(0o755)
    places = {"127.0.0.1:9116": f"127.0.0.1:{listening_port(process)}", "127.0.0.1:1161": agent.address,
              "build/bin/vswitchctl": PROGRAMS / "vswitchctl", "build/state/run": switch.run_dir}
    assert len(looking) >= 6
    assert follow(looking, places, PATH=f"{folder}:{os.environ['PATH']}") == looking


class Killed:
    """A process that ends with the test, however it ends."""

    def __init__(self, process):
        self.process = process

    def finish(self):
        self.process.kill()


def test_login_for_real_use_is_the_one_of_the_page(started, folder, start_switch, start_agent):
    agent_lines, login = blocks(PAGE, "For real use")[:2]
    switch = start_switch(empty=True)
    agent = start_agent(switch, lines=agent_lines.splitlines())
    exporter = started.add(Exporter(folder, login))
    assert without_clocks(samples(exporter.scrape(agent))) == expected(switch, has_names=False)


def test_net_snmp_tools_learn_the_names_as_the_page_shows(started, folder, start_switch, start_agent):
    port = free_udp_port()
    switch = start_switch()
    agent = start_agent(switch, lines=[f"trap2sink 127.0.0.1:{port} public"])
    shown, receiver = map(steps, blocks(PAGE, "The Net-SNMP tools"))
    places = {"$PWD/build/mibs": MIBS, "127.0.0.1:1161": agent.address, "127.0.0.1:1163": f"127.0.0.1:{port}"}
    home = {"HOME": str(folder)}
    unset = [("unset MIBS MIBDIRS SNMPCONFPATH", [])]
    oid = dotted(ARCS["vsanOperState"])
    wanted = [(said, [line.replace(".1.3.6.1.4.1.32473.9.282.1.1.3.1.8", oid) for line in lines])
              for said, lines in shown]
    assert follow(unset + shown, places, **home) == unset + wanted

    environment = {name: value for name, value in os.environ.items() if name not in ("MIBS", "MIBDIRS", "SNMPCONFPATH")}
    environment |= home | {"PATH": os.environ["PATH"] + ":/usr/sbin:/sbin", "SNMP_PERSISTENT_DIR": str(folder)}
    process = LoggedProcess(["bash", "-c", "exec " + adapted(receiver[0][0], places)], env=environment)
    started.add(Killed(process))
    process.wait_line("NET-SNMP version")
    wait_until_subscribed(switch, agent)
    OperatorTool(switch)("vsan", "create", 60)
    process.wait_line(r"VSAN-MIB::vsanStatusChange.*VSAN-MIB::vsanNotificationVsan\.0 = INTEGER: 60.*"
                      r"VSAN-MIB::vsanAdminState\.60 = INTEGER: active\(1\)")
