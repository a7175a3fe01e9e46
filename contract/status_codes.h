/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The status codes of the reference platform, one row each: code, name, text. The
 * virtual switch answers with them and the error-text library renders them. A code
 * is 32 bits: 0x4019 is the VSAN manager, 0x4049 the VSAN library and its users'
 * rights, 0x4054 roles, 0x402e the port manager, 0x4001 the message service.
 */
#ifndef STATUS_CODES_H
#define STATUS_CODES_H

#include <stdint.h>

/* clang-format off */
#define PLATFORM_STATUS_CODES(X) \
    X(0x00000000u, STATUS_SUCCESS,                 "Success") \
    X(0x40010001u, STATUS_NO_SUCH_SERVICE,         "No manager answers for this service") \
    X(0x40010002u, STATUS_NO_SUCH_OPCODE,          "The manager does not know this request") \
    X(0x40010003u, STATUS_NO_SUCH_KIND,            "The manager does not offer this kind of request for this object") \
    X(0x40010004u, STATUS_BAD_LENGTH,              "The request record has the wrong length") \
    X(0x40010005u, STATUS_BAD_RECORD,              "The request record has a field that is not allowed there") \
    X(0x40010006u, STATUS_STORE_FAILED,            "The switch's database could not be read or written") \
    X(0x40010007u, STATUS_NO_SUCH_PARCEL,          "The upload or download is gone") \
    X(0x40190001u, STATUS_NO_SUCH_VSAN,            "VSAN does not exist") \
    X(0x40190002u, STATUS_NO_SUCH_ATTRIBUTE,       "Attribute not found for the VSAN") \
    X(0x40190003u, STATUS_NO_MORE_VSANS,           "No further VSAN") \
    X(0x40190004u, STATUS_NAME_CONFLICT,           "Name conflicts with that of another VSAN") \
    X(0x40190005u, STATUS_VSAN_OUT_OF_RANGE,       "VSAN number is not between 1 and 4095") \
    X(0x40190006u, STATUS_BAD_STATE,               "Administrative state is neither active nor suspended") \
    X(0x40190007u, STATUS_BAD_MEDIA,               "Media type is not Fibre Channel") \
    X(0x40190008u, STATUS_BAD_MTU,                 "MTU is not between 1 and 65535") \
    X(0x40190009u, STATUS_BAD_LOAD_BALANCING,      "Load balancing is not one of the two types") \
    X(0x4019000au, STATUS_BAD_INTEROP,             "Interoperability mode is not 1 to 4, or 100 for none") \
    X(0x4019000bu, STATUS_BAD_INORDER_DELIVERY,    "In-order delivery is neither true nor false") \
    X(0x4019000cu, STATUS_BAD_NAME,                "Name is not made of at most 32 printable characters without blanks") \
    X(0x4019000du, STATUS_BAD_ROW_STATUS,          "Row status of the record is neither active nor createAndGo") \
    X(0x4019000eu, STATUS_DEFAULT_VSAN,            "VSAN 1 cannot be deleted") \
    X(0x4019000fu, STATUS_BAD_LATENCY,             "Latency is not between 0 and 60000") \
    X(0x40190010u, STATUS_BAD_TIMER,               "Timer value is outside its range") \
    X(0x40190011u, STATUS_TIMER_ORDER,             "E_D_TOV would not be less than R_A_TOV") \
    X(0x40190014u, STATUS_BAD_DROP_LATENCY,        "Network drop latency is not between 1 and 60000") \
    X(0x4019001fu, STATUS_NO_VALUE,                "No value given") \
    X(0x40190020u, STATUS_NO_SUCH_INTERFACE,       "Interface does not exist") \
    X(0x40190021u, STATUS_NO_MORE_INTERFACES,      "No further interface") \
    X(0x40190028u, STATUS_TDX_REFUSED,             "The distribution service refuses the read") \
    X(0x40190029u, STATUS_TDX_LOCKED,              "The distribution session is locked by another user") \
    X(0x4019002au, STATUS_TDX_NO_SESSION,          "No distribution session is open") \
    X(0x4019002bu, STATUS_TDX_SESSION_OPEN,        "A distribution session is open; commit or abort it first") \
    X(0x4019002cu, STATUS_TDX_NO_FABRIC,           "The distribution service has no fabric to commit to") \
    X(0x402e0001u, STATUS_NO_SUCH_MEMBERSHIP,      "Interface is not a member of the VSAN") \
    X(0x402e0002u, STATUS_NO_MORE_MEMBERSHIPS,     "No further member") \
    X(0x40490002u, STATUS_NO_INSTANCE,             "No such instance") \
    X(0x40490003u, STATUS_BAD_EVENT,               "Event payload cannot be decoded") \
    X(0x4049002cu, STATUS_VSAN_RESTRICTED,         "User is not allowed in this VSAN") \
    X(0x4049002du, STATUS_INTERFACE_RESTRICTED,    "User is not allowed on this interface") \
    X(0x4049002eu, STATUS_SWITCH_RESTRICTED,       "User may not change settings of the whole switch") \
    X(0x40540001u, STATUS_NO_SUCH_ROLE,            "Role does not exist") \
    X(0x40540002u, STATUS_ROLE_EXISTS,             "A role of this name exists") \
    X(0x40540003u, STATUS_BAD_ROLE,                "Role is not usable") \
    X(0x40540004u, STATUS_ROLES_NOT_WRITTEN,       "The role file could not be read or written") \
    X(0x40540008u, STATUS_VSAN_NOT_ALLOWED,        "User may not create or delete this VSAN")
/* clang-format on */

#define PLATFORM_STATUS_ENUMERATOR(code, name, text) name = code,
enum platform_status { PLATFORM_STATUS_CODES(PLATFORM_STATUS_ENUMERATOR) };
#undef PLATFORM_STATUS_ENUMERATOR

#endif
