#pragma once

/// @file
/// The management handlers, which answer the requests of the management socket, and the diagnostic dumps.

#include "lumenharbour_protocol.h"

/// @name Handlers
///
/// Every handler runs on the daemon's one thread and takes the global lock itself. `var` points to one uint32 for an
/// integer attribute and to an `octetstring` for every other; null means that the request carried no value that fits,
/// and is answered with `ERR_ZOR_UNSUPPORTED` wherever a value is needed. The pointer stays the caller's. A set of a
/// name lowers the octet string's `len` when it clamps; a get writes into the octet string's buffer and sets `len`.
/// @{

/// Sets global attribute `cmd`. `p_index` is not used.
///
/// @return 0; `ERR_ZOR_NOTSTARTED` while the service is stopped (`LUMENHARBOUR_GLB_STATE` and `_DEBUG` excepted);
///         `ERR_ZOR_UNSUPPORTED` for an attribute that cannot be set or is refused in this role; `ERR_ZOR_BADLEN` for
///         an address of other than 4 bytes; `ERR_AUTOCFG_NODIRECTORIP`, `ERR_AUTOCFG_IPMISMATCH` when the switch
///         cannot become director; `ERR_AUTOCFG_IMAGELIST` when the default imagelist cannot be written; or what
///         starting a role returned
int lumenharbourSetApi(void* p_index, unsigned int cmd, void* var);

/// Reads global attribute `cmd`, whether the service runs or not. `p_index` is not used.
///
/// Reading `LUMENHARBOUR_GLB_CALLBACK` announces a client to the director (see `tLumenHarbourCallback`) and answers 0
/// even where the announcement fails, which shows in the lengths alone.
///
/// @return 0; `ERR_ZOR_UNSUPPORTED` for an attribute that cannot be read; `ERR_ZOR_BUFSHORT` for a name buffer below
///         255 bytes or a callback record of other than 548; `ERR_BARE_NOMEM` when no custom group id is free
int lumenharbourGetApi(void* p_index, unsigned int cmd, void* var);

/// Finds the custom group with the lowest id. @param[out] p_index its id. @return 0, or -1 when there is none.
int lumenharbourCustomGrpGetFirst(unsigned int* p_index);

/// Finds the custom group with the lowest id above `group_index`, which need not exist.
/// @param[out] p_nextindex its id. @return 0, or -1 when there is none.
int lumenharbourCustomGrpGetNext(unsigned int group_index, unsigned int* p_nextindex);

/// Finds a custom group by its name.
///
/// @param[in]  name     the name's bytes, not terminated
/// @param[in]  namelen  their number; a name longer than 63 matches no group, and its bytes are not read
/// @param[out] pid      the group's id; null for none wanted
/// @return 0, or -1 when no group has the name (`pid` is left alone)
int lumenharbourCustomGrpIdGet(unsigned char* name, unsigned int namelen, unsigned int* pid);

/// Sets attribute `cmd` of custom group `group_index`; a row status creates and deletes rows.
///
/// @return 0; `ERR_ZOR_NOTFOUND`; `ERR_ZOR_EXISTS` for a row or name that exists; `ERR_ZOR_UNSUPPORTED`;
///         `ERR_AUTOCFG_IMAGELIST` when activation fails; `ERR_BARE_NOMEM`; `ERR_BARE_INVALID` for a type above 4
int lumenharbourCustomGrpSetApi(unsigned int group_index, unsigned int cmd, void* var);

/// Reads attribute `cmd` of custom group `group_index`.
///
/// @return 0; `ERR_ZOR_NOTFOUND`; `ERR_ZOR_UNSUPPORTED`; `ERR_ZOR_BUFSHORT` for a buffer below 63 bytes (name) or 255
///         (file names)
int lumenharbourCustomGrpGetApi(unsigned int group_index, unsigned int cmd, void* var);

/// Finds the first MAC member: groups of MAC type by ascending id, each group's newest member first.
/// @return 0, or -1 when there is none.
int lumenharbourCustomGrpMacGetFirst(tLumenHarbourGrpMacIndex* p_index);

/// Finds the member that follows `p_index` in the order of `lumenharbourCustomGrpMacGetFirst`, passing over every
/// member equal to `p_index`. @return 0, or -1 when there is none or `p_index` is not there, which ends the walk.
int lumenharbourCustomGrpMacGetNext(tLumenHarbourGrpMacIndex* p_index, tLumenHarbourGrpMacIndex* p_nextindex);

/// Sets the row status of a MAC member.
///
/// @return 0; `ERR_ZOR_NULLINDEX`; `ERR_ZOR_NOTFOUND` for group or member; `ERR_AUTOCFG_NOTMACGRP`;
///         `ERR_ZOR_UNSUPPORTED`; `ERR_BARE_NOMEM` when the member pool is used up
int lumenharbourCustomGrpMacSetApi(tLumenHarbourGrpMacIndex* p_index, unsigned int cmd, void* var);

/// Reads the row status of a MAC member, 1 for every member that exists.
/// @return 0, `ERR_ZOR_NULLINDEX`, `ERR_ZOR_NOTFOUND` or `ERR_ZOR_UNSUPPORTED`.
int lumenharbourCustomGrpMacGetApi(tLumenHarbourGrpMacIndex* p_index, unsigned int cmd, void* var);

/// As `lumenharbourCustomGrpMacGetFirst`, for product-id members.
int lumenharbourCustomGrpPidGetFirst(tLumenHarbourGrpPidIndex* p_index);

/// As `lumenharbourCustomGrpMacGetNext`, for product-id members.
int lumenharbourCustomGrpPidGetNext(tLumenHarbourGrpPidIndex* p_index, tLumenHarbourGrpPidIndex* p_nextindex);

/// As `lumenharbourCustomGrpMacSetApi`, for product-id members; a wrong group type is `ERR_AUTOCFG_NOTPIDGRP`.
int lumenharbourCustomGrpPidSetApi(tLumenHarbourGrpPidIndex* p_index, unsigned int cmd, void* var);

/// As `lumenharbourCustomGrpMacGetApi`, for product-id members.
int lumenharbourCustomGrpPidGetApi(tLumenHarbourGrpPidIndex* p_index, unsigned int cmd, void* var);

/// Finds the first built-in group in pool order. @param[out] p_index its product id. @return 0, or -1 for none.
int lumenharbourBuiltinGrpGetFirst(unsigned int* p_index);

/// Finds the built-in group that follows the one of product id `group_index` in pool order.
/// @param[out] p_nextindex its product id
/// @return 0; -1 when there is none; `ERR_ZOR_NOTFOUND` when `group_index` has no group, unlike the other walks
int lumenharbourBuiltinGrpGetNext(unsigned int group_index, unsigned int* p_nextindex);

/// Sets attribute `cmd` of the built-in group of product id `group_index`; a row status creates and deletes rows.
/// @return as `lumenharbourCustomGrpSetApi`.
int lumenharbourBuiltinGrpSetApi(unsigned int group_index, unsigned int cmd, void* var);

/// Reads attribute `cmd` of the built-in group of product id `group_index`. @return as `lumenharbourCustomGrpGetApi`.
int lumenharbourBuiltinGrpGetApi(unsigned int group_index, unsigned int cmd, void* var);

/// Finds the client with the lowest index. @param[out] p_index its index. @return 0, or -1 when there is none.
int lumenharbourClientGetFirst(unsigned int* p_index);

/// Finds the client with the lowest index above `client_index`, which need not exist.
/// @param[out] p_nextindex its index. @return 0, or -1 when there is none.
int lumenharbourClientGetNext(unsigned int client_index, unsigned int* p_nextindex);

/// Deletes client `client_index` when `cmd` is `LUMENHARBOUR_CLIENT_STATUS`, whatever the value.
/// @return 0, `ERR_ZOR_NOTFOUND`, or `ERR_ZOR_UNSUPPORTED` for every other attribute.
int lumenharbourClientSetApi(unsigned int client_index, unsigned int cmd, void* var);

/// Reads attribute `cmd` of client `client_index`.
///
/// @return 0, also for an address buffer below 4 bytes, into which nothing is written; `ERR_ZOR_NOTFOUND`;
///         `ERR_ZOR_UNSUPPORTED`; `ERR_ZOR_BUFSHORT` for a MAC buffer below 6 bytes
int lumenharbourClientGetApi(unsigned int client_index, unsigned int cmd, void* var);

/// @}

/// @name Diagnostic dumps
///
/// For a developer's debugger or console: each prints on standard output whatever the debug switch says. Nothing in the
/// daemon calls them.
/// @{

void lumenharbour_show();              ///< prints the global record; the FTP password too
void lumenharbour_mem_show();          ///< prints how many records each pool list holds, and the records' sizes
void lumenharbour_custom_grp_show();   ///< prints the custom groups and their members
void lumenharbour_builtin_grp_show();  ///< prints the built-in groups
void lumenharbour_client_show();       ///< prints the clients, the one added last first

/// @}
