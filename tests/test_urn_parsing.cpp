// Splitting "urn:VORLA:" strings into kind, locality, file name and id, with both id
// overloads.
#include <gtest/gtest.h>

#include <string>

#include "KalVorlaParser.h"
#include "ParserInspector.h"

namespace {

using kaltest::Str;

// Preset outputs; a case expecting one of these means "left as the caller set it".
constexpr int kStaleType = 77;
constexpr int kStaleLocal = 9;
constexpr int kStaleId = -99;
const char kStaleText[] = "stale";

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
    // Any locality other than "loc" is external.
    {"urn:VORLA:TechRep:LOC:sub/x.vorla#0012", S_OK, 2, 0, "0012", 12, "sub/x.vorla"},
    // An unknown or miscased kind leaves the type alone and parsing goes on.
    {"urn:VORLA:reference:loc:007", S_OK, kStaleType, 1, "007", 7, ""},
    // The local id is the whole rest of the string.
    {"urn:VORLA:Reference:loc:12:13", S_OK, 0, 1, "12:13", 12, ""},
    // The file name runs to the first ".vorla" that is followed by "#".
    {"urn:VORLA:Representation:ext:a.vorla.b.vorla#3", S_OK, 1, 0, "3", 3, "a.vorla.b.vorla"},
    // The prefix only has to occur somewhere; parsing always starts at index 10.
    {"0123456789Reference:loc:4 urn:VORLA:", S_OK, 0, 1, "4 urn:VORLA:", 4, ""},
    // Without the prefix nothing is written.
    {"urn:vorla:Reference:loc:1", E_FAIL, kStaleType, kStaleLocal, kStaleText, kStaleId,
     kStaleText},
    {"", E_FAIL, kStaleType, kStaleLocal, kStaleText, kStaleId, kStaleText},
};

TEST(UrnParsing, BothOverloadsSplitEveryFormTheStringOneKeepingTheIdAsWritten) {
  KalVorlaParser parser;
  for (const UrnCase& c : kCases) {
    SCOPED_TRACE(c.urn);
    KalVorlaUrnType types[2] = {static_cast<KalVorlaUrnType>(kStaleType),
                                static_cast<KalVorlaUrnType>(kStaleType)};
    unsigned char isLocal[2] = {kStaleLocal, kStaleLocal};
    KalUnicodeString idText(kStaleText), fileNames[2] = {kStaleText, kStaleText};
    int id = kStaleId;
    EXPECT_EQ(parser.ExtractVorlaUrnDatas(c.urn, types[0], isLocal[0], id, fileNames[0]), c.code);
    EXPECT_EQ(parser.ExtractVorlaUrnDatas(c.urn, types[1], isLocal[1], idText, fileNames[1]),
              c.code);
    for (int k = 0; k < 2; ++k) {
      EXPECT_EQ(static_cast<int>(types[k]), c.type) << k;
      EXPECT_EQ(static_cast<int>(isLocal[k]), c.isLocal) << k;
      EXPECT_EQ(Str(fileNames[k]), c.fileName) << k;
    }
    EXPECT_EQ(id, c.id);
    EXPECT_EQ(Str(idText), c.idText);
  }
  // Malformed beyond the prefix (no ".vorla#"): still a success.
  KalVorlaUrnType type = static_cast<KalVorlaUrnType>(kStaleType);
  unsigned char isLocal = kStaleLocal;
  KalUnicodeString id, fileName;
  EXPECT_EQ(parser.ExtractVorlaUrnDatas("urn:VORLA:Representation:ext:part.xml#3", type, isLocal,
                                        id, fileName),
            S_OK);
  EXPECT_EQ(static_cast<int>(type), 1);
  EXPECT_EQ(static_cast<int>(isLocal), 0);
}

}  // namespace
