#pragma once

/// @file
/// Result codes of management operations: an error base shifted left by 16 plus a number. A code travels unchanged in a
/// reply's return-code field, so the numbers are fixed.

enum : int {
  EBASE_ZOR = 1000,      ///< generic management errors
  EBASE_AUTOCFG = 1006,  ///< errors of the provisioning service
};

/// Every code once: name, base, number, and the cause in an operator's words.
#define ZOR_ERROR_LIST(X)                                                                         \
  X(ERR_ZOR_NOTFOUND, EBASE_ZOR, 2, "there is no such row")                                       \
  X(ERR_ZOR_EXISTS, EBASE_ZOR, 3, "the row or the name exists already")                           \
  X(ERR_ZOR_BADLEN, EBASE_ZOR, 10, "the value has the wrong length")                              \
  X(ERR_ZOR_BUFSHORT, EBASE_ZOR, 13, "the room for the answer is too short")                      \
  X(ERR_ZOR_UNSUPPORTED, EBASE_ZOR, 16, "the attribute or value is refused, or not in this role") \
  X(ERR_ZOR_NOTSTARTED, EBASE_ZOR, 22, "the service is stopped")                                  \
  X(ERR_ZOR_NULLINDEX, EBASE_ZOR, 26, "the row index is missing")                                 \
  X(ERR_AUTOCFG_NODIRECTORIP, EBASE_AUTOCFG, 1, "the director address or its type is not set")    \
  X(ERR_AUTOCFG_IPMISMATCH, EBASE_AUTOCFG, 2, "the director address is not one of this switch's") \
  X(ERR_AUTOCFG_IMAGELIST, EBASE_AUTOCFG, 3, "the imagelist file could not be written")           \
  X(ERR_AUTOCFG_NOTMACGRP, EBASE_AUTOCFG, 4, "the group does not hold MAC addresses")             \
  X(ERR_AUTOCFG_NOTPIDGRP, EBASE_AUTOCFG, 5, "the group does not hold product ids")

/// @return the code made of an error base and a number.
constexpr int zor_error(int base, int number) {
  return base * 65536 + number;
}

enum : int {
#define ZOR_ERROR_ENUMERATOR(name, base, number, text) name = zor_error(base, number),
  ZOR_ERROR_LIST(ZOR_ERROR_ENUMERATOR)
#undef ZOR_ERROR_ENUMERATOR
};

/// Two results are bare numbers without a base, and travel like that.
enum : int {
  ERR_BARE_NOMEM = 12,    ///< a record pool has no free record
  ERR_BARE_INVALID = 22,  ///< a custom group type out of range; also the length answered to an empty request
};
