// XML reading: input streams, the element factory and the parser.
#ifndef KAL_LIGHT_XML_H
#define KAL_LIGHT_XML_H

#include <cstddef>
#include <cstdint>

#include "KalLightXmlElementItf.h"
#include "KalUnicodeString.h"

// Hints that `element` will be read soon. The parser lays an element out with its attributes
// right after it and their text right before, so the lines around it are fetched too. Only a
// hint: harmless on any pointer, null included.
inline void KalPrefetchElement(const KalLightXmlElementItf* element) {
  const uintptr_t at = reinterpret_cast<uintptr_t>(element);
  __builtin_prefetch(reinterpret_cast<const void*>(at - 32));
  __builtin_prefetch(reinterpret_cast<const void*>(at + 32));
  __builtin_prefetch(reinterpret_cast<const void*>(at + 96));
}

// A source of XML bytes. The bytes stay valid while the stream lives.
class KalLightXmlInputStream {
 public:
  virtual ~KalLightXmlInputStream() = default;
  // Points `data` at the stream's bytes; false when they cannot be had (unreadable file).
  virtual bool GetBytes(const unsigned char*& data, size_t& size) = 0;
};

// The bytes of a file, mapped read-only on first use.
class KalLightXmlInputFile : public KalLightXmlInputStream {
 public:
  explicit KalLightXmlInputFile(const KalUnicodeString& path);
  ~KalLightXmlInputFile() override;
  KalLightXmlInputFile(const KalLightXmlInputFile&) = delete;
  KalLightXmlInputFile& operator=(const KalLightXmlInputFile&) = delete;
  bool GetBytes(const unsigned char*& data, size_t& size) override;

 private:
  KalUnicodeString _Path;
  void* _pMapping;
  size_t _Size;
  bool _Opened;
};

// A caller's buffer, neither copied nor owned: the parser copies what the tree keeps, so the
// buffer may be freed as soon as Parse returns.
class KalLightXmlInputStreamBuffer : public KalLightXmlInputStream {
 public:
  KalLightXmlInputStreamBuffer(const unsigned char* data, int size);
  bool GetBytes(const unsigned char*& data, size_t& size) override;

 private:
  const unsigned char* _pData;
  int _Size;
};

class KalLightXmlElementFactory {
 public:
  // A new, empty element that can receive a parsed document (Parse) or a copy (CopyFrom);
  // the caller deletes it. Null when memory runs out.
  KalLightXmlElementItf* CreateElement();
};

class KalLightXmlParser {
 public:
  // Parses the stream's document into `root`, an element made by KalLightXmlElementFactory:
  // root gets the document element's tag, attributes, text and children. Returns 1 on
  // success, 0 when the input is not well-formed XML, cannot be read, or memory runs out; a
  // partly filled root is then still safe to delete. Anything root held before is released.
  int Parse(KalLightXmlInputStream& input, KalLightXmlElementItf& root);
};

#endif
