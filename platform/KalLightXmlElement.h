// The concrete element of the platform's XML model (internal to the platform).
#ifndef KAL_LIGHT_XML_ELEMENT_H
#define KAL_LIGHT_XML_ELEMENT_H

#include <memory>

#include "KalLightXmlElementItf.h"
#include "KalUnicodeString.h"

class KalXmlDocument;

struct KalXmlAttribute {
  const KalUnicodeString* name;  // interned in the document
  KalUnicodeString value;        // borrowed from the document's arena
};

// An element of a parsed document. Elements live in their document's arena and are never
// destroyed one by one: every string they hold is borrowed from that arena. The first child
// and next sibling links make a child walk a pointer chase, and the cursor is simply the
// next child to return.
class KalLightXmlElement : public KalLightXmlElementItf {
 public:
  KalLightXmlElement() = default;
  int CopyFrom(const KalLightXmlElementItf* source) override;
  KalPosition GetHeadPosition() const override { return _pFirstChild; }
  KalLightXmlElementItf* GetNextChild(KalPosition& cursor) const override;
  const KalUnicodeString& GetType() const override {
    return _pType != nullptr ? *_pType : KalUnicodeString::Empty();
  }
  const KalUnicodeString& GetAttribute(const KalUnicodeString& name) const override;
  const KalUnicodeString& GetValue() const override { return _Value; }
  ~KalLightXmlElement() override = default;

 protected:
  friend class KalXmlBuilder;
  friend class KalXmlDocument;
  friend class KalLightXmlRootElement;

  const KalUnicodeString* _pType = nullptr;
  KalUnicodeString _Value;
  KalLightXmlElement* _pFirstChild = nullptr;
  KalLightXmlElement* _pNextSibling = nullptr;
  KalXmlAttribute* _pAttributes = nullptr;
  int _NbAttributes = 0;
};

// The element a factory makes: the root of a document, which it owns. Deleting it releases
// the whole document at once.
class KalLightXmlRootElement : public KalLightXmlElement {
 public:
  KalLightXmlRootElement();
  ~KalLightXmlRootElement() override;
  int CopyFrom(const KalLightXmlElementItf* source) override;

  // Drops what the root held and starts a new document sized for about `sizeHint` bytes.
  KalXmlDocument* Reset(size_t sizeHint);

 private:
  KalXmlDocument* _pDocument = nullptr;
};

#endif
