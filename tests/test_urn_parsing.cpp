// Splitting "urn:VORLA:" strings into kind, locality, file name and id, with both id
// overloads.
#include <gtest/gtest.h>

#include <string>

#include "KalVorlaParser.h"
#include "ParserInspector.h"

namespace {

using kaltest::Str;

// Preset outputs; a case expecting one of these means "left as the caller set it".
const KalVorlaUrnType kStaleType = static_cast<KalVorlaUrnType>(77);
constexpr int kStaleLocal = 9;
constexpr int kStaleId = -99;
const char kStaleText[] = "stale";
// Marks an output that a case does not pin.
const char* const kAny = nullptr;
constexpr int kAnyNumber = -1000;

struct UrnCase {
  const char* urn;
  HRESULT code;
  int type;
  int isLocal;
  const char* idText;  // string overload
  int id;              // integer overload
  const char* fileName;
};

const UrnCase kCases[] = {
    {"urn:VORLA:Reference:loc:12", S_OK, 0, 1, "12", 12, ""},
    {"urn:VORLA:Representation:ext:part.vorla#3", S_OK, 1, 0, "3", 3, "part.vorla"},
    {"urn:VORLA:TechRep:loc:5", S_OK, 2, 1, "5", 5, ""},
    // An unknown or miscased kind leaves the type alone and parsing goes on.
    {"urn:VORLA:Unknown:loc:7", S_OK, kStaleType, 1, "7", 7, ""},
    {"urn:VORLA:reference:loc:7", S_OK, kStaleType, 1, "7", 7, ""},
    {"urn:VORLA:Reference:loc:007", S_OK, 0, 1, "007", 7, ""},
    // The local id is the whole rest of the string.
    {"urn:VORLA:Reference:loc:12:13", S_OK, 0, 1, "12:13", 12, ""},
    {"urn:VORLA:Reference:loc:abc", S_OK, 0, 1, "abc", kStaleId, ""},
    {"urn:VORLA:Reference:ext:sub/part.vorla#0012", S_OK, 0, 0, "0012", 12, "sub/part.vorla"},
    // The file name runs to the first ".vorla" that is followed by "#".
    {"urn:VORLA:Representation:ext:a.vorla.b.vorla#3", S_OK, 1, 0, "3", 3, "a.vorla.b.vorla"},
    {"urn:VORLA:TechRep:LOC:x.vorla#2", S_OK, 2, 0, "2", 2, "x.vorla"},
    {"urn:VORLA:Reference:ext:p.vorla#", S_OK, 0, 0, "", kStaleId, "p.vorla"},
    // The prefix only has to occur somewhere; parsing always starts at index 10.
    {"0123456789Reference:loc:4 urn:VORLA:", S_OK, 0, 1, "4 urn:VORLA:", 4, ""},
    {"xxurn:VORLA:Reference:loc:12", S_OK, kStaleType, 0, kAny, kAnyNumber, kAny},
    // Malformed beyond the prefix: still a success.
    {"urn:VORLA:Representation:ext:part.xml#3", S_OK, 1, 0, kAny, kAnyNumber, kAny},
    {"urn:VORLA:Reference", S_OK, kAnyNumber, kAnyNumber, kAny, kAnyNumber, kAny},
    // Without the prefix nothing is written.
    {"urn:vorla:Reference:loc:1", E_FAIL, kStaleType, kStaleLocal, kStaleText, kStaleId,
     kStaleText},
    {"urn-VORLA:Reference:loc:1", E_FAIL, kStaleType, kStaleLocal, kStaleText, kStaleId,
     kStaleText},
    {"urn:VORLA", E_FAIL, kStaleType, kStaleLocal, kStaleText, kStaleId, kStaleText},
    {"", E_FAIL, kStaleType, kStaleLocal, kStaleText, kStaleId, kStaleText},
};

void ExpectShared(const UrnCase& c, HRESULT code, KalVorlaUrnType type, unsigned char isLocal,
                  const KalUnicodeString& fileName) {
  EXPECT_EQ(code, c.code);
  if (c.type != kAnyNumber) {
    EXPECT_EQ(static_cast<int>(type), c.type);
  }
  if (c.isLocal != kAnyNumber) {
    EXPECT_EQ(static_cast<int>(isLocal), c.isLocal);
  }
  if (c.fileName != kAny) {
    EXPECT_EQ(Str(fileName), c.fileName);
  }
}

TEST(UrnParsing, IntegerOverloadSplitsEveryForm) {
  KalVorlaParser parser;
  for (const UrnCase& c : kCases) {
    SCOPED_TRACE(c.urn);
    KalVorlaUrnType type = kStaleType;
    unsigned char isLocal = kStaleLocal;
    int id = kStaleId;
    KalUnicodeString fileName(kStaleText);
    const HRESULT code = parser.ExtractVorlaUrnDatas(c.urn, type, isLocal, id, fileName);
    ExpectShared(c, code, type, isLocal, fileName);
    if (c.id != kAnyNumber) {
      EXPECT_EQ(id, c.id);
    }
  }
}

TEST(UrnParsing, StringOverloadKeepsTheIdAsWritten) {
  KalVorlaParser parser;
  for (const UrnCase& c : kCases) {
    SCOPED_TRACE(c.urn);
    KalVorlaUrnType type = kStaleType;
    unsigned char isLocal = kStaleLocal;
    KalUnicodeString id(kStaleText);
    KalUnicodeString fileName(kStaleText);
    const HRESULT code = parser.ExtractVorlaUrnDatas(c.urn, type, isLocal, id, fileName);
    ExpectShared(c, code, type, isLocal, fileName);
    if (c.idText != kAny) {
      EXPECT_EQ(Str(id), c.idText);
    }
  }
}

}  // namespace
