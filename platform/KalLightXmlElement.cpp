#include "KalLightXmlElement.h"

#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "KalLightXml.h"
#include "KalXmlDocument.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace {

// Most names are at most 16 bytes: then their first and last 8 bytes are the whole name, so
// telling two apart takes two compares and no memcmp.
void NameWords(const char* name, size_t length, uint64_t& head, uint64_t& tail) {
  head = 0;
  tail = 0;
  if (length >= 8) {
    std::memcpy(&head, name, 8);
    std::memcpy(&tail, name + length - 8, 8);
  } else {
    for (size_t i = 0; i < length; ++i)
      head |= static_cast<uint64_t>(static_cast<uint8_t>(name[i])) << (8 * i);
  }
}

}  // namespace

// ---- KalXmlDocument ----

const KalUnicodeString* KalXmlDocument::Intern(const char* name, size_t length) {
  if ((_NbNames + 1) * 2 > _Slots.size() && !Grow()) return nullptr;
  // A hash of the whole name, so that no family of names (long shared prefixes and
  // suffixes, say) can pile up in one probe sequence.
  const uint64_t h = XXH3_64bits_withSeed(name, length, _Seed);
  uint64_t head, tail;
  NameWords(name, length, head, tail);
  const size_t mask = _Slots.size() - 1;
  for (size_t i = h & mask;; i = (i + 1) & mask) {
    Slot& s = _Slots[i];
    if (s.name == nullptr) {
      char* text = _Arena.CopyText(name, length);
      void* where = _Arena.Allocate(sizeof(KalUnicodeString));
      if (text == nullptr || where == nullptr) return nullptr;
      s.hash = h;
      s.head = head;
      s.tail = tail;
      s.length = length;
      s.name =
          new (where) KalUnicodeString(KalUnicodeString::Borrow(text, static_cast<int>(length)));
      ++_NbNames;
      return s.name;
    }
    if (s.hash == h && s.head == head && s.tail == tail && s.length == length &&
        (length <= 16 || std::memcmp(s.name->ConvertToChar(), name, length) == 0)) {
      return s.name;
    }
  }
}

bool KalXmlDocument::Grow() {
  try {
    std::vector<Slot> old(std::move(_Slots));
    _Slots.assign(old.empty() ? 64 : old.size() * 2, Slot{0, 0, 0, 0, nullptr});
    const size_t mask = _Slots.size() - 1;
    for (const Slot& s : old) {
      if (s.name == nullptr) continue;
      size_t i = s.hash & mask;
      while (_Slots[i].name != nullptr) i = (i + 1) & mask;
      _Slots[i] = s;
    }
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

void KalXmlDocument::ReleaseInternTable() {
  std::vector<Slot>().swap(_Slots);
  _NbNames = 0;
}

KalLightXmlElement* KalXmlDocument::NewElement() {
  void* where = _Arena.Allocate(sizeof(KalLightXmlElement));
  return where == nullptr ? nullptr : new (where) KalLightXmlElement();
}

bool KalXmlDocument::CopyString(const KalUnicodeString& source, KalUnicodeString& target) {
  if (source.IsEmpty()) {
    target = KalUnicodeString();
    return true;
  }
  char* text = _Arena.CopyText(source.ConvertToChar(), source.GetLengthInChar());
  if (text == nullptr) return false;
  target = KalUnicodeString::Borrow(text, source.GetLengthInChar());
  return true;
}

bool KalXmlDocument::CopyTree(KalLightXmlElement* to, const KalLightXmlElement* from) {
  struct Pending {
    KalLightXmlElement* to;
    const KalLightXmlElement* from;
  };
  std::vector<Pending> stack;
  try {
    stack.push_back({to, from});
    while (!stack.empty()) {
      Pending p = stack.back();
      stack.pop_back();
      KalLightXmlElement* t = p.to;
      const KalLightXmlElement* f = p.from;
      t->_pType = nullptr;
      if (f->_pType != nullptr) {
        t->_pType = Intern(f->_pType->ConvertToChar(), f->_pType->GetLengthInChar());
        if (t->_pType == nullptr) return false;
      }
      if (!CopyString(f->_Value, t->_Value)) return false;
      t->_pAttributes = nullptr;
      t->_NbAttributes = 0;
      if (f->_NbAttributes > 0) {
        void* where = _Arena.Allocate(sizeof(KalXmlAttribute) * f->_NbAttributes);
        if (where == nullptr) return false;
        auto* attributes = static_cast<KalXmlAttribute*>(where);
        for (int i = 0; i < f->_NbAttributes; ++i) {
          const KalXmlAttribute& a = f->_pAttributes[i];
          const KalUnicodeString* name = Intern(a.name->ConvertToChar(), a.name->GetLengthInChar());
          if (name == nullptr) return false;
          new (&attributes[i]) KalXmlAttribute{name, KalUnicodeString()};
          if (!CopyString(a.value, attributes[i].value)) return false;
        }
        t->_pAttributes = attributes;
        t->_NbAttributes = f->_NbAttributes;
      }
      t->_pFirstChild = nullptr;
      KalLightXmlElement* last = nullptr;
      for (const KalLightXmlElement* c = f->_pFirstChild; c != nullptr; c = c->_pNextSibling) {
        KalLightXmlElement* copy = NewElement();
        if (copy == nullptr) return false;
        if (last == nullptr) {
          t->_pFirstChild = copy;
        } else {
          last->_pNextSibling = copy;
        }
        last = copy;
        stack.push_back({copy, c});
      }
    }
    ReleaseInternTable();
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

// ---- KalLightXmlElement ----

KalLightXmlElementItf* KalLightXmlElement::GetNextChild(KalPosition& cursor) const {
  auto* child = static_cast<KalLightXmlElement*>(cursor);
  cursor = child != nullptr ? child->_pNextSibling : nullptr;
  return child;
}

const KalUnicodeString& KalLightXmlElement::GetAttribute(const KalUnicodeString& name) const {
  const int length = name.GetLengthInChar();
  const char* text = name.ConvertToChar();
  for (int i = 0; i < _NbAttributes; ++i) {
    const KalUnicodeString* n = _pAttributes[i].name;
    if (n->GetLengthInChar() == length && std::memcmp(n->ConvertToChar(), text, length) == 0) {
      return _pAttributes[i].value;
    }
  }
  return KalUnicodeString::Empty();
}

// Only a root element owns storage a copy can live in.
int KalLightXmlElement::CopyFrom(const KalLightXmlElementItf*) { return 0; }

// ---- KalLightXmlRootElement ----

KalLightXmlRootElement::KalLightXmlRootElement() = default;

KalLightXmlRootElement::~KalLightXmlRootElement() { delete _pDocument; }

KalXmlDocument* KalLightXmlRootElement::Reset(size_t sizeHint) {
  delete _pDocument;
  _pDocument = nullptr;
  _pType = nullptr;
  _Value = KalUnicodeString();
  _pFirstChild = nullptr;
  _pNextSibling = nullptr;
  _pAttributes = nullptr;
  _NbAttributes = 0;
  _pDocument = new (std::nothrow) KalXmlDocument(sizeHint);
  return _pDocument;
}

int KalLightXmlRootElement::CopyFrom(const KalLightXmlElementItf* source) {
  const auto* from = dynamic_cast<const KalLightXmlElement*>(source);
  if (from == nullptr || from == this) return 0;
  // The source may belong to the document this root is about to drop; copy first, swap after.
  auto* document = new (std::nothrow) KalXmlDocument(64 * 1024);
  if (document == nullptr) return 0;
  KalLightXmlElement copy;
  if (!document->CopyTree(&copy, from)) {
    delete document;
    return 0;
  }
  delete _pDocument;
  _pDocument = document;
  _pType = copy._pType;
  _Value = std::move(copy._Value);
  _pFirstChild = copy._pFirstChild;
  _pNextSibling = nullptr;
  _pAttributes = copy._pAttributes;
  _NbAttributes = copy._NbAttributes;
  return 1;
}

// ---- KalLightXmlElementFactory ----

KalLightXmlElementItf* KalLightXmlElementFactory::CreateElement() {
  return new (std::nothrow) KalLightXmlRootElement();
}
