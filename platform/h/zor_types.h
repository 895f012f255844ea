#pragma once

/// @file
/// Types that every piece shares: fixed-width integers, the octet string that carries values, and the intrusive list.

#include <cstdint>

using uint8 = std::uint8_t;
using uint16 = std::uint16_t;
using uint32 = std::uint32_t;
using uint64 = std::uint64_t;
using int16 = std::int16_t;
using int32 = std::int32_t;

/// A 64-bit management integer as it travels: high word first, on either byte order.
struct U_INT8 {
  uint32 high;  ///< upper 32 bits; the word that a handler of an integer attribute reads and writes
  uint32 low;   ///< lower 32 bits
};

/// A byte string without a terminator. The bytes belong to whoever filled in `pBuf`.
struct octetstring {
  uint8* pBuf;  ///< first byte
  uint32 len;   ///< bytes; on a read the capacity on entry and the number of bytes written on return
};

/// Link of a circular doubly linked list; the list itself is one more such link, the sentinel head.
///
/// A record that is linked begins with its link, so a link's address is its record's address (see `list_entry`).
struct list_head {
  list_head* next;
  list_head* prev;
};

/// Makes `head` an empty list; whatever was linked to it is forgotten, not unlinked.
inline void list_init(list_head* head) {
  head->next = head;
  head->prev = head;
}

/// @return true when nothing is linked to `head`.
inline bool list_empty(const list_head* head) {
  return head->next == head;
}

/// Links `node` between `prev` and its successor.
inline void list_insert_after(list_head* node, list_head* prev) {
  node->next = prev->next;
  node->prev = prev;
  prev->next->prev = node;
  prev->next = node;
}

/// Links `node` as the first entry of `head`.
inline void list_add_head(list_head* node, list_head* head) {
  list_insert_after(node, head);
}

/// Links `node` as the last entry of `head`.
inline void list_add_tail(list_head* node, list_head* head) {
  list_insert_after(node, head->prev);
}

/// Takes `node` off whatever list it is on. A node whose links are null, because its record was zero-filled, passes
/// unharmed. The node's own links are left as they were.
inline void list_unlink(list_head* node) {
  if (node->next != nullptr) node->next->prev = node->prev;
  if (node->prev != nullptr) node->prev->next = node->next;
}

/// @return the record of type `T` that begins with `node`; meaningless for a sentinel head.
template <typename T>
T* list_entry(list_head* node) {
  return reinterpret_cast<T*>(node);
}

/// Calls `use` with each record on a list, from the front. It may unlink or free the record that it is given.
///
/// @tparam T  record that begins with its link
template <typename T, typename Use>
void list_each(const list_head* head, Use use) {
  for (list_head *node = head->next, *next = node->next; node != head; node = next, next = node->next)
    use(list_entry<T>(node));
}

/// @return the first record on a list that `match` accepts, or null.
template <typename T, typename Match>
T* list_find(const list_head* head, Match match) {
  for (list_head* node = head->next; node != head; node = node->next)
    if (match(list_entry<T>(node))) return list_entry<T>(node);
  return nullptr;
}
