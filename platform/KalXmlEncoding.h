// The encoding of an XML document: found from its byte-order mark, its first bytes or its
// declaration, and converted to UTF-8 with the C library's iconv.
#ifndef KAL_XML_ENCODING_H
#define KAL_XML_ENCODING_H

#include <cstddef>
#include <string>

namespace kalxml {

// Points text/length at the document's UTF-8 text, byte-order mark removed: the input itself
// when it is UTF-8 already, else `converted`. False when the encoding is unknown or the bytes
// are invalid in it. The UTF-8 itself is not checked here.
bool ToUtf8(const unsigned char* data, size_t size, std::string& converted, const char*& text,
            size_t& length);

// An encoding name as a declaration may write it: a letter, then letters, digits, '.', '_'
// and '-' (so nothing iconv would read as options).
bool IsEncodingName(const std::string& name);

}  // namespace kalxml

#endif
