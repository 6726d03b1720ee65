// URN splitting shared by the queries that follow URNs.
#ifndef KAL_VORLA_URN_PARSING_H
#define KAL_VORLA_URN_PARSING_H

#include <string_view>

#include "KalVorlaParser.h"

namespace kalvorla {

// ExtractVorlaUrnDatas with an integer id, also telling whether the id text converted: when
// it does not, `id` keeps the caller's value and `idSet` is false, so a caller can tell "no
// id" from any id a document may hold.
HRESULT ExtractUrn(const KalUnicodeString& urn, KalVorlaUrnType& type, unsigned char& isLocal,
                   int& id, bool& idSet, KalUnicodeString& fileName);

// SubString without the copy: the same clamping of a negative start or length and of a
// range past the end.
std::string_view Piece(const KalUnicodeString& text, int start, int length);

// The "associatedFile" URN of a "RepFormat" element, not copied; null for a null element or
// another tag.
const KalUnicodeString* RepFormatUrn(const KalLightXmlElementItf* repFormat);

}  // namespace kalvorla

#endif
