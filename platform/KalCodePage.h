// Text encodings of the platform: base64.
#ifndef KAL_CODE_PAGE_H
#define KAL_CODE_PAGE_H

class KalCodePage {
 public:
  // Decodes NUL-terminated base64 text. ASCII white space anywhere is skipped; "=" padding
  // may only close the last group of four; a last group of two or three characters without
  // padding is accepted. On success `data` gets a new unsigned char[] (non-null, even for
  // empty text; the caller releases it with delete[]), `length` the byte count, and the
  // result is 0. Any other character, misplaced padding or a lone last character gives a
  // negative result with `data` null and `length` 0; so does a null `text`.
  static int ConvertFromBase64(const char* text, unsigned char*& data, unsigned int& length);
};

#endif
