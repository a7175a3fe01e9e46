# SPDX-License-Identifier: Apache-2.0
"""How a maker's headers may differ from those in platform/include, and how they may not.
Each entry belongs to an item of docs/porting.md, by the item's first words."""

import re
from dataclasses import dataclass

PROTOTYPE = re.compile(r"^(?!typedef)\w[\w *]*?\b\w+\([^;{}]*\)[^;{}]*;\n", re.M)
COMMENT = re.compile(r"/\*.*?\*/", re.S)
EVERY = "*"  # all headers


@dataclass(frozen=True)
class Variation:
    """One change of one header's text: `old`, which must be there, becomes `new`; or `new`
    is a function of the whole text."""

    item: str
    header: str
    old: str
    new: object

    def apply(self, text):
        if callable(self.new):
            return self.new(text)
        assert self.old in text, f"{self.header} has no {self.old!r}"
        return text.replace(self.old, self.new)


def functions_last_and_reversed(text):
    prototypes = PROTOTYPE.findall(text)
    rest = PROTOTYPE.sub("", text)
    end = rest.rindex("#ifdef __cplusplus\n}")
    return rest[:end] + "".join(reversed(prototypes)) + rest[end:]


def parameters_renamed(text):
    def renamed(prototype):
        return re.sub(r"(?<=[ *])(?!void\b)([a-z]\w*)(?=[,)])", r"makers_\1", prototype.group(0))
    return PROTOTYPE.sub(renamed, text)


def without_comments_and_guard(text):
    text = COMMENT.sub("", text)
    text = re.sub(r"^#ifndef (PLATFORM_\w+)\n#define \1\n", "#pragma once\n", text.lstrip())
    return "#include <time.h>\n" + text[: text.rindex("#endif")]


def enumerators(text):
    """Numeric macros as members of an enumeration."""
    return re.sub(r"^#define ([A-Z_]+) (\d+)u?\b", r"enum { \1 = \2 };", text, flags=re.M)


ORDER, PARAMETERS, TEXT = "the order of the declarations", "the names of parameters", "comments, guards"
CONSTANTS, TYPES, MORE = "a constant", "what a type is", "further functions"
INTEGERS, CONST_MORE = "an integer that is handed over", "`const` in front of"
RESULTS, MACRO = "a result", "a function that is a macro"

# All of these at once make the headers that the module is built with and loaded into an agent.
MAY_DIFFER = (
    Variation(CONSTANTS, EVERY, "", enumerators),
    Variation(TYPES, "mts.h", "struct mts_queue mts_queue", "struct makers_queue mts_queue"),
    Variation(TYPES, "mts.h", "struct mts_message mts_message", "struct { uint32_t words[2]; } mts_message"),
    Variation(TYPES, "indxobj.h", "    void *impl;\n", "    struct tree *root;\n    unsigned count;\n"),
    Variation(MORE, "indxobj.h", "void indxobj_destroy(",
              "unsigned indxobj_count(const indxobj_list *list);\nvoid indxobj_destroy("),
    Variation(MORE, "netsnmpagent_oryx.h", "    char text[200];", "    char text[200];\n    uint32_t severity;"),
    Variation(INTEGERS, "mts.h", "mts_queue *queue, uint32_t wait_class", "mts_queue *queue, int wait_class"),
    Variation(INTEGERS, "sdwrap.h", "uint32_t length, const void *record", "int length, const void *record"),
    Variation(INTEGERS, "netsnmpagent_oryx.h", "uint32_t event_class, notification_callback",
              "int event_class, notification_callback"),
    Variation(INTEGERS, "netsnmpagent_oryx.h", "uint32_t number);", "uint64_t number);"),
    Variation(CONST_MORE, "indxobj.h", "indxobj_find(indxobj_list *list", "indxobj_find(const indxobj_list *list"),
    Variation(CONST_MORE, "mts.h", "const char *user_name", "const char *const user_name"),
    Variation(RESULTS, "netsnmpagent_oryx.h", "int register_for_notification", "void register_for_notification"),
    Variation(RESULTS, "sdwrap.h", "void buginf", "int buginf"),
    Variation(RESULTS, "syserr.h", "const char *syserr2str", "char *syserr2str"),
    Variation(RESULTS, "mts.h", "const void *mts_payload_get", "void *mts_payload_get"),
    Variation(MACRO, "sysmgr.h", "void sysmgr_heartbeat(int blocking);",
              "void sysmgr_heartbeat(int blocking);\n#define sysmgr_heartbeat(blocking) (sysmgr_heartbeat)(blocking)"),
    Variation(PARAMETERS, EVERY, "", parameters_renamed),
    Variation(ORDER, EVERY, "", functions_last_and_reversed),
    Variation(TEXT, EVERY, "", without_comments_and_guard),
)

NAMES, LINKAGE, ARGUMENTS = "the names", "C linkage", "the number and the order"
POINTERS, CONST, CALLBACKS = "what a pointer points to", "`const` where", "the two callbacks"
WIDTH, MEMBERS = "the width", "the members"

# Each of these alone keeps the module from being built, or from finding the library's function.
MUST_BE_EQUAL = (
    *(Variation(NAMES, header, name, "makers_" + name) for header, name in (
        ("indxobj.h", "indxobj_find"), ("indxobj.h", "INDXOBJ_CREATED"), ("mts.h", "cmi_req_resp"),
        ("mts.h", "mts_response_q"), ("mts.h", "MANAGER_SAP_PORT"), ("netsnmpagent_oryx.h", "allowed_vsan_list"),
        ("netsnmpagent_oryx.h", "PDU_TYPE_SET"), ("netsnmpagent_oryx.h", "EVENT_CLASS_VSAN_CONFIG"),
        ("sdwrap.h", "sdwrap_dbg_modname"))),
    *(Variation(LINKAGE, header, 'extern "C" {', 'extern "C++" {') for header in (
        "indxobj.h", "mts.h", "netsnmpagent_oryx.h", "pm.h", "sdwrap.h", "syserr.h", "sysmgr.h", "tdx.h", "vsan.h")),
    Variation(ARGUMENTS, "indxobj.h", "const void *key, void *data", "void *data"),
    Variation(ARGUMENTS, "indxobj.h", "const void *key, int flags", "int flags, const void *key"),
    Variation(ARGUMENTS, "sdwrap.h", "uint32_t length, const void *record", "const void *record, uint32_t length"),
    Variation(ARGUMENTS, "syserr.h", "syserr_format(uint32_t status)", "syserr_format(uint32_t status, int language)"),
    Variation(POINTERS, "mts.h", "uint32_t *length", "uint64_t *length"),
    Variation(POINTERS, "mts.h", "void **reply", "char **reply"),
    Variation(POINTERS, "pm.h", "uint8_t *is_static", "uint32_t *is_static"),
    Variation(POINTERS, "tdx.h", "uint32_t *enabled", "int *enabled"),
    Variation(POINTERS, "vsan.h", "uint32_t *vsan_id", "uint16_t *vsan_id"),
    Variation(POINTERS, "netsnmpagent_oryx.h", "uint32_t *vsan,", "uint16_t *vsan,"),
    Variation(CONST, "mts.h", "const void *payload, void **reply", "void *payload, void **reply"),
    Variation(CONST, "mts.h", "const char *user_name", "char *user_name"),
    Variation(CONST, "mts.h", "mts_payload_get(const mts_message", "mts_payload_get(mts_message"),
    Variation(CONST, "indxobj.h", "const void *key, int flags", "void *key, int flags"),
    Variation(CONST, "indxobj.h", "void *indxobj_remove(", "const void *indxobj_remove("),
    Variation(CONST, "netsnmpagent_oryx.h", "const oid *name, size_t length", "oid *name, size_t length"),
    Variation(CONST, "netsnmpagent_oryx.h", "const void *value", "void *value"),
    Variation(CONST, "tdx.h", "const char *feature", "char *feature"),
    Variation(CONST, "vsan.h", "const void *payload", "void *payload"),
    Variation(CONST, "sdwrap.h", "const char *format", "char *format"),
    Variation(CALLBACKS, "indxobj.h", "(const void *a, const void *b)", "(void *a, void *b)"),
    Variation(CALLBACKS, "netsnmpagent_oryx.h", "callback)(const mts_message", "callback)(mts_message"),
    Variation(CALLBACKS, "netsnmpagent_oryx.h", "size_t *trap_length,\n", "int *trap_length,\n"),
    Variation(WIDTH, "mts.h", "uint32_t cmi_req_resp", "uint64_t cmi_req_resp"),
    Variation(WIDTH, "netsnmpagent_oryx.h", "uint32_t get_pdu_reqid", "uint64_t get_pdu_reqid"),
    Variation(WIDTH, "vsan.h", "uint32_t size", "uint16_t size"),
    Variation(WIDTH, "netsnmpagent_oryx.h", "log_set_error(uint32_t code", "log_set_error(uint16_t code"),
    Variation(MEMBERS, "netsnmpagent_oryx.h", "    uint32_t code;", "    uint32_t status;"),
    Variation(MEMBERS, "netsnmpagent_oryx.h", "    char text[200];", "    char message[200];"),
    Variation(MEMBERS, "netsnmpagent_oryx.h", "    char text[200];", "    char *text;"),
    Variation(MEMBERS, "netsnmpagent_oryx.h", "    uint32_t size;", "    uint32_t bytes;"),
    Variation(MEMBERS, "netsnmpagent_oryx.h", "    uint8_t bitmap[512];", "    uint8_t bits[512];"),
    Variation(MEMBERS, "netsnmpagent_oryx.h", "    uint8_t bitmap[512];", "    uint8_t *bitmap;"),
)
