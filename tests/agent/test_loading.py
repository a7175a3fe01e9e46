# SPDX-License-Identifier: Apache-2.0
"""How the module gets into the agent and out again."""

import ctypes
import os
import pwd
import re
import shutil
import subprocess
from types import SimpleNamespace

import pytest

from harness import wire
from harness.agent import BY_EXTENSION, DIRECTLY
from harness.build import AGENT_PRELOAD, EXTENSION, LIBRARIES, MODULE, PORTED_MODULE, REPOSITORY, SWITCH_LIBRARY
from harness.clients import EXCEPTIONS, NetSnmp, Packets
from harness.notifications import SINKS, Receiver, status_change, wait_until_subscribed
from harness.oids import ARCS, NAMES, ROOT, SYS_DESCR, VSAN_ENTRY, cell, scalar
from harness.operator_tool import OperatorTool

# The agent's own table of loaded modules: status, and the values that change it.
LOADED_MODULES = (1, 3, 6, 1, 4, 1, 2021, 13, 14)
MODULE_STATUS = LOADED_MODULES + (2, 1, 5)
LOADED, UNLOADED, LOAD, UNLOAD = 1, 2, 4, 5

ACTIVE, DOWN = 1, 2  # states of a VSAN

WAYS = pytest.mark.parametrize("loading", [BY_EXTENSION, DIRECTLY], ids=["by_extension", "directly"])


def assert_serves(client, switch):
    number, name = client.get(scalar("vsanNumber"), cell("vsanName", 10))
    assert (number.value, name.value) == (len(switch.vsans()), b"storage_prod")


def assert_answers_nothing(client):
    assert client.get(scalar("vsanNumber"))[0].kind in EXCEPTIONS
    assert client.get(cell("vsanName", 10))[0].kind in EXCEPTIONS
    assert client.walk(ROOT) == []
    assert client.bulk_walk(ROOT) == []
    assert client.get(SYS_DESCR)[0].kind == "OCTET STRING"


@WAYS
def test_loaded_either_way_it_shows_the_same(switch, client, start_agent, loading):
    other = NetSnmp(start_agent(switch, loading=loading))
    assert other.walk(ROOT) == client.walk(ROOT)


def test_built_against_a_makers_headers_it_imports_exports_and_shows_the_same(switch, client, start_agent):
    assert imported_by(PORTED_MODULE) == imported_by(MODULE)
    assert exported_by(PORTED_MODULE) == exported_by(MODULE)
    agent = start_agent(switch, loading=f"dlmod vsan_mib {PORTED_MODULE}")
    assert NetSnmp(agent).walk(ROOT) == client.walk(ROOT)
    assert [b.oid[-1] for b in NetSnmp(agent, "3", "alice").walk(ARCS["vsanName"])] == [1, 30]


@WAYS
def test_loaded_either_way_users_are_restricted(switch, start_agent, loading):
    agent = start_agent(switch, loading=loading)
    for version, user in (("3", "alice"), ("2c", "limited")):
        assert [b.oid[-1] for b in NetSnmp(agent, version, user).walk(ARCS["vsanName"])] == [1, 30]
    assert len(NetSnmp(agent, "3", "bob").walk(ARCS["vsanName"])) == len(switch.vsans())


@WAYS
def test_loaded_either_way_one_row_costs_one_request(switch, start_agent, loading):
    client = NetSnmp(start_agent(switch, loading=loading))
    for _ in range(2):
        with switch.counting() as served:
            client.get(cell("vsanName", 10), cell("vsanMtu", 10))
        assert served.of(wire.VSAN) == 1


def test_initialised_once_when_the_extension_library_loads_it(switch, start_agent):
    agent = start_agent(switch)
    NetSnmp(agent).get(scalar("vsanNumber"))
    agent.finish()  # all of its standard output is there now
    printed = agent.process.text()
    assert printed.count("DEBUG : In _init") == 1
    assert printed.count("DEBUG : ENTER init_vsan_mib") == printed.count("DEBUG : EXIT init_vsan_mib") == 1
    agent.process = None


@WAYS
def test_unloaded_and_loaded_by_set_while_running(switch, start_agent, loading):
    agent = start_agent(switch, loading=loading)
    client, operator = NetSnmp(agent), NetSnmp(agent, user="private")
    assert_serves(client, switch)
    for _ in range(4):
        operator.set((MODULE_STATUS + (1,), "i", UNLOAD))
        assert operator.get(MODULE_STATUS + (1,))[0].value == UNLOADED
        assert_answers_nothing(client)
        operator.set((MODULE_STATUS + (1,), "i", LOAD))
        assert operator.get(MODULE_STATUS + (1,))[0].value == LOADED
        assert_serves(client, switch)
    assert len(client.walk(VSAN_ENTRY)) == 10 * len(switch.vsans())


@WAYS
def test_force_flags_are_gone_once_it_was_unloaded(start_switch, start_agent, loading):
    switch = start_switch(initial={"vsans": [{"id": 10}, {"id": 20}]})
    operator = NetSnmp(start_agent(switch, loading=loading), user="private")
    flags = ARCS["vsanFcTimerForceFlag"]
    operator.set((flags + (10,), "x", "E0"), (flags + (20,), "x", "40"))
    assert [row.value for row in operator.walk(flags)] == [b"\0", b"\xe0", b"\x40"]
    operator.set((MODULE_STATUS + (1,), "i", UNLOAD))
    operator.set((MODULE_STATUS + (1,), "i", LOAD))
    assert [row.value for row in operator.walk(flags)] == [b"\0"] * 3


@WAYS
def test_unloaded_for_good_the_agent_goes_on_and_ends_well(switch, start_agent, loading):
    agent = start_agent(switch, loading=loading)
    client = NetSnmp(agent)
    assert_serves(client, switch)
    NetSnmp(agent, user="private").set((MODULE_STATUS + (1,), "i", UNLOAD))
    for _ in range(5):
        assert_answers_nothing(client)
    for library in (MODULE, EXTENSION):
        mapped = open(f"/proc/{agent.process.pid}/maps").read()
        assert str(library) not in mapped, "unloaded code stays mapped"


@WAYS
def test_sighup_loads_it_again_with_requests_right_after(switch, start_agent, loading):
    agent = start_agent(switch, loading=loading)
    client = NetSnmp(agent)
    assert_serves(client, switch)
    for _ in range(5):
        agent.reload()
        assert_serves(client, switch)
    assert len(client.walk(VSAN_ENTRY)) == 10 * len(switch.vsans())


@WAYS
def test_sighup_while_requests_come_in(switch, start_agent, loading):
    """Requests wait in the agent's socket while it reloads; each is answered."""
    agent = start_agent(switch, loading=loading)
    with Packets(agent) as packets:
        request = packets.packet([cell("vsanName", 10)], 1)
        for _ in range(5):
            agent.reload()
            for _ in range(20):
                assert packets.exchange(request)[0].value == b"storage_prod"


@WAYS
def test_loading_again_and_again_leaves_no_descriptor_behind(switch, start_agent, loading):
    agent = start_agent(switch, loading=loading)
    client = NetSnmp(agent)

    def one_round():
        agent.reload()
        assert_serves(client, switch)
        return agent.descriptors()

    first = one_round()
    assert [one_round() for _ in range(4)] == [first] * 4


def test_second_copy_loaded_beside_the_first_does_no_harm(switch, start_agent):
    """Someone has both lines in the configuration."""
    agent = start_agent(switch, loading=f"{BY_EXTENSION}\n{DIRECTLY}")
    client = NetSnmp(agent)
    assert_serves(client, switch)
    agent.reload()
    assert_serves(client, switch)


@pytest.fixture(params=[1, 2], ids=["first_list", "second_list"])
def failing_lists(request, folder):
    """A library for an agent's LD_PRELOAD with which one list cannot be made at its start."""
    source, library = folder / "lists.c", folder / "lists.so"
    source.write_text("static int calls;\n"
                      "int indxobj_create(void) { return ++calls == %d ? 0 : 2; }\n" % request.param)
    subprocess.run(["cc", "-shared", "-fPIC", "-o", library, source], check=True)
    return library


def test_list_creation_failing_at_start_answers_nothing_and_does_no_harm(switch, start_agent, failing_lists):
    agent = start_agent(switch, preload=failing_lists)
    client = NetSnmp(agent)
    assert_answers_nothing(client)
    agent.reload()  # the counter goes on: this time both lists can be made
    assert_serves(client, switch)


def test_list_creation_failing_at_start_leaves_the_notifications(started, start_switch, start_agent, failing_lists):
    switch = start_switch(initial={"vsans": [{"id": 10}]})
    receiver = started.add(Receiver(started.folders.make())).start()
    agent = start_agent(switch, preload=failing_lists, lines=[SINKS["v2c trap"].format(port=receiver.port)])
    wait_until_subscribed(switch, agent)
    assert_answers_nothing(NetSnmp(agent))
    OperatorTool(switch)("vsan", "create", 50)
    assert receiver.next() == status_change(50, ACTIVE, DOWN)


@pytest.mark.skipif(os.geteuid() != 0, reason="only root can start an agent as another user")
@WAYS
def test_started_as_root_it_runs_as_another_user(folder, start_switch, start_agent, loading):
    account = pwd.getpwnam("nobody")
    # The build may lie where only its owner gets to, and a reload opens the libraries anew.
    reachable = folder / "lib"
    shutil.copytree(LIBRARIES, reachable, ignore=shutil.ignore_patterns("static"))
    loading = loading.replace(str(LIBRARIES), str(reachable))
    switch = start_switch(initial={"vsans": [{"id": 10, "name": "storage_prod"}]}, socket_group=account.pw_gid)
    switch.folder.chmod(0o755)
    agent = start_agent(switch, loading=loading, user="nobody")
    client = NetSnmp(agent)
    assert_serves(client, switch)
    assert agent.user_ids() == [account.pw_uid] * 4
    switch.restart()
    assert_serves(client, switch)
    agent.reload()
    assert_serves(client, switch)


@pytest.mark.skipif(os.geteuid() != 0, reason="only root can start an agent as another user")
def test_an_agent_outside_the_socket_group_sees_nothing_and_stays_up(start_switch, start_agent):
    switch = start_switch(initial={"vsans": [{"id": 10, "name": "storage_prod"}]})
    assert_answers_nothing(NetSnmp(start_agent(switch, user="nobody")))


def exported_by(library):
    listed = subprocess.run(["nm", "-D", "--defined-only", library], capture_output=True, text=True, check=True)
    return {line.split()[-1].split("@")[0] for line in listed.stdout.splitlines() if line.split()[1] != "A"}


def imported_by(library):
    """The symbols that a library looks for in others; weak ones, the C library's and a sanitizer's left out.
    A sanitizer stands before the C library, so what it watches there carries no version of that."""
    listed = subprocess.run(["nm", "-D", "--undefined-only", library], capture_output=True, text=True, check=True)
    symbols = {line.split()[-1] for line in listed.stdout.splitlines() if line.split()[0] == "U"}
    c_library = ctypes.CDLL("libc.so.6")
    return {symbol.split("@")[0] for symbol in symbols
            if "@GLIBC_" not in symbol and not re.match("__(asan|ubsan|sanitizer)_", symbol)
            and not hasattr(c_library, symbol)}


def needed_by(library):
    listed = subprocess.run(["readelf", "-dW", library], capture_output=True, text=True, check=True)
    return set(re.findall(r"\(NEEDED\).*\[(.+)\]", listed.stdout))


def test_module_exports_what_its_export_list_says():
    text = (REPOSITORY / "feature/vsan_manager/mib/vsanmib.map").read_text()
    text = re.sub(r"/\*.*?\*/|#[^\n]*", "", text, flags=re.DOTALL)
    listed = set(re.findall(r"(\w+);", re.search(r"global:(.*?)local:", text, re.DOTALL).group(1)))
    assert {"init_vsan_mib", "deinit_vsan_mib"} <= listed
    assert exported_by(MODULE) == listed


def test_module_links_libc_net_snmp_and_the_platform_only():
    platform = {f"lib{name}.so" for name in (
        "mts", "indxobj", "sdwrap", "syserr", "sysmgr", "tdx", "vsan", "pm", "netsnmpagent_oryx")}
    assert platform == {path.name for path in LIBRARIES.glob("lib*.so")} - {"libvsanmib.so", "libswitchmib.so"}
    others = {name for name in needed_by(MODULE) - platform
              if not re.fullmatch(r"lib(netsnmp|netsnmpagent|netsnmpmibs|c)\.so\.\d+", name)}
    if AGENT_PRELOAD:
        others = {name for name in others if not re.match(r"lib(asan|ubsan|clang_rt)", name)}
    assert others == set()


def test_the_switchs_own_part_of_the_agent_needs_no_runtime_of_another_language():
    others = {name for name in needed_by(SWITCH_LIBRARY)
              if not re.fullmatch(r"lib(netsnmp|netsnmpagent|netsnmpmibs|c)\.so\.\d+", name)}
    if AGENT_PRELOAD:
        others = {name for name in others if not re.match(r"lib(asan|ubsan|clang_rt)", name)}
    assert others == {"libmts.so", "libnetsnmpagent_oryx.so"}


# What a switch has to bring along, and what of Net-SNMP.
PLATFORM_IMPORTS = """
    cmi_req_resp mts_response_q mts_payload_get mts_payload_size
    indxobj_create indxobj_add indxobj_find indxobj_remove indxobj_destroy
    register_for_notification unregister_for_notification build_varbind
    get_snmp_username get_snmp_sessionid get_pdu_reqid log_set_error log_snmp_error
    snmp_get_allowed_vsans_subtree snmp_is_vsan_allowed_in_list snmp_get_next_allowed_vsan_in_list
    snmp_is_vsan_allowed_subtree intf_chk_vsan_role_allowed
    is_tdx_enabled get_tdx_show_run_mode
    vsan_range_config_change_get_info vsan_range_config_change_get_attr_values
    pm_cmi_get_active_vsan_port_membership
    sysmgr_heartbeat syserr_format syserr2str
    sdwrap_hist_event_subtype_check sdwrap_hist_event sdwrap_chk_int buginf sdwrap_dbg_modname
""".split()
NET_SNMP_IMPORTS = """
    register_mib unregister_mib header_generic snmp_oid_compare snmp_set_detail netsnmp_timeval_uptime
    snmp_get_do_debugging debugmsgtoken debugmsg
""".split()


def test_module_imports_these_functions_of_the_platform_and_of_net_snmp_and_no_others():
    assert imported_by(MODULE) == {*PLATFORM_IMPORTS, *NET_SNMP_IMPORTS}


def test_module_needs_no_compiler_runtime_of_its_language():
    undefined = subprocess.run(["nm", "-D", "--undefined-only", MODULE], capture_output=True, text=True, check=True)
    assert not re.findall(r"\b(?:_Z\w+|__cxa_(?!finalize)\w+|__gxx\w+)", undefined.stdout)


def test_moved_build_folder_works_from_where_it_is(switch, start_agent, folder):
    """The libraries find each other beside themselves."""
    moved = folder / "lib"
    shutil.copytree(LIBRARIES, moved, ignore=shutil.ignore_patterns("static"))
    agent = start_agent(switch, loading=f"dlmod netsnmpagent_oryx {moved / EXTENSION.name}")
    assert_serves(NetSnmp(agent), switch)
    assert str(moved / MODULE.name) in open(f"/proc/{agent.process.pid}/maps").read()


def test_every_object_is_registered_where_it_belongs(start_agent, folder):
    """Without any manager each registered object still says `no such instance`, every
    other name `no such object`."""
    client = NetSnmp(start_agent(SimpleNamespace(run_dir=folder)))
    for name in NAMES:
        assert client.get(ARCS[name] + (1,))[0].kind == "noSuchInstance", name
    for other in ((1, 1, 3, 1, 1), (1, 1, 3, 1, 7), (1, 2, 1), (1, 3), (1, 4, 9), (2,)):
        assert client.get(ROOT + other + (1,))[0].kind == "noSuchObject", other
