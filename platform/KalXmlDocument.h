// Storage of one parsed document: its arena and the table of interned names.
#ifndef KAL_XML_DOCUMENT_H
#define KAL_XML_DOCUMENT_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "KalLightXmlElement.h"
#include "KalXmlArena.h"

class KalXmlDocument {
 public:
  // The name hash is seeded per document, so a crafted set of colliding names cannot be
  // prepared in advance.
  explicit KalXmlDocument(size_t sizeHint)
      : _Arena(sizeHint),
        _Seed(reinterpret_cast<uintptr_t>(this) ^
              static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count())) {}
  KalXmlDocument(const KalXmlDocument&) = delete;
  KalXmlDocument& operator=(const KalXmlDocument&) = delete;

  KalXmlArena& Arena() { return _Arena; }

  // Tag and attribute names repeat throughout a document: each distinct name is stored once
  // and shared. Null when memory runs out.
  const KalUnicodeString* Intern(const char* name, size_t length);
  // The table is only needed while names are being added.
  void ReleaseInternTable();

  // A new empty element in the arena; null when memory runs out.
  KalLightXmlElement* NewElement();
  // A borrowed string over a NUL-terminated copy of the text in the arena.
  bool CopyString(const KalUnicodeString& source, KalUnicodeString& target);
  // Makes `to` (already in this document or its root) a deep copy of `from`, attributes,
  // text and all descendants, without recursion. False when memory runs out.
  bool CopyTree(KalLightXmlElement* to, const KalLightXmlElement* from);

 private:
  struct Slot {
    uint64_t hash;
    uint64_t head;  // the name's first 8 bytes
    uint64_t tail;  // its last 8 bytes (zero for names of fewer than 8 bytes)
    size_t length;
    const KalUnicodeString* name;
  };
  bool Grow();

  KalXmlArena _Arena;
  uint64_t _Seed;
  std::vector<Slot> _Slots;
  size_t _NbNames = 0;
};

#endif
