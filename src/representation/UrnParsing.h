// URN splitting shared by the queries that follow URNs.
#ifndef KAL_VORLA_URN_PARSING_H
#define KAL_VORLA_URN_PARSING_H

#include "KalVorlaParser.h"

namespace kalvorla {

// ExtractVorlaUrnDatas with an integer id, also telling whether the id text converted: when
// it does not, `id` keeps the caller's value and `idSet` is false, so a caller can tell "no
// id" from any id a document may hold.
HRESULT ExtractUrn(const KalUnicodeString& urn, KalVorlaUrnType& type, unsigned char& isLocal,
                   int& id, bool& idSet, KalUnicodeString& fileName);

// The "associatedFile" URN of a "RepFormat" element, not copied; null, with the code of
// GetRepresentationUrn, for a null element or another tag.
const KalUnicodeString* RepFormatUrn(const KalLightXmlElementItf* repFormat, HRESULT& code);

}  // namespace kalvorla

#endif
