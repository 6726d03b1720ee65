// One element of a parsed XML document.
#ifndef KAL_LIGHT_XML_ELEMENT_ITF_H
#define KAL_LIGHT_XML_ELEMENT_ITF_H

#include "KalUnicodeString.h"

// Opaque cursor over an element's child elements; null means no (further) child.
typedef void* KalPosition;

class KalLightXmlElementItf {
 public:
  // Makes this element, created by KalLightXmlElementFactory, an independent deep copy of
  // `source`. Returns 1 on success, 0 on failure.
  virtual int CopyFrom(const KalLightXmlElementItf* source) = 0;
  // Cursor on the first child element; null when the element has none.
  virtual KalPosition GetHeadPosition() const = 0;
  // The child at the cursor; advances the cursor, which becomes null after the last child.
  virtual KalLightXmlElementItf* GetNextChild(KalPosition& cursor) const = 0;
  // The tag, as written (prefix included).
  virtual const KalUnicodeString& GetType() const = 0;
  // The attribute's value; the shared empty string when the element has no such attribute.
  virtual const KalUnicodeString& GetAttribute(const KalUnicodeString& name) const = 0;
  // The text content: character data and CDATA, concatenated as written.
  virtual const KalUnicodeString& GetValue() const = 0;
  // Deleting the root element of a parsed document releases the whole document.
  virtual ~KalLightXmlElementItf() = default;
};

#endif
