// Archive access: what OpenZip takes for an archive, whole and piecewise reads, damage.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

#include "KalHResult.h"
#include "KalSysZipFile.h"
#include "TestDocuments.h"

namespace {

constexpr int kEntryInvalid = static_cast<int>(0x8007000Du);
constexpr size_t kCrc = 14, kCompressedSize = 18, kSize = 22, kPayload = 0;
using Sizes = std::vector<unsigned int>;

// Pseudo-random bytes: over 16 letters they deflate to about half, otherwise not at all.
std::string Bytes(size_t size, uint32_t state, bool compressible = true) {
  std::string out(size, '\0');
  for (char& c : out) {
    state = state * 1103515245u + 12345u;
    c = static_cast<char>(compressible ? 'a' + ((state >> 16) & 15u) : state >> 24);
  }
  return out;
}

int Open(KalSysZipFile& zip, const std::string& path) {
  const KalUnicodeString name(path.c_str());
  return zip.OpenZip(&name, KAL_ZIP_READ | KAL_ZIP_CHECK_CONSISTENCY);
}

int OpenEntry(KalSysZipFile& zip, const char* name) {
  const KalUnicodeString entry(name);
  return zip.OpenFileInZip(&entry, KAL_ZIP_READ, 0);
}

// "rc,name:size,..." from the table of contents.
std::string Toc(KalSysZipFile& zip) {
  KalUnicodeString* names = nullptr;
  unsigned int count = 0, *sizes = nullptr;
  std::string out = std::to_string(zip.BrowseZip(&names, &count, &sizes, nullptr, nullptr));
  for (unsigned int i = 0; i < count; ++i)
    out += std::string(",") + names[i].ConvertToChar() + ":" + std::to_string(sizes[i]);
  delete[] names;
  delete[] sizes;
  return out;
}

// Reads the open entry with calls of the given sizes in turn until one fails or reads
// nothing; gives the result of the last call.
int ReadEntry(KalSysZipFile& zip, const Sizes& pieces, std::string* data) {
  int rc = S_OK;
  for (unsigned int call = 0, read = 1; rc == S_OK && read > 0 && call < 100000; ++call) {
    std::string buffer(pieces[call % pieces.size()], '\0');
    read = 0xDEADu;
    rc = zip.ReadBufferInZip(&buffer[0], buffer.size(), &read);
    EXPECT_LE(read, buffer.size());
    data->append(buffer, 0, read);
  }
  return rc;
}

// A 4-byte field of the local header of entry `name` (the name follows it at 30 bytes).
uint32_t Field(const std::string& bytes, const std::string& name, size_t field) {
  uint32_t value = 0;
  const size_t at = bytes.find(name) - 30 + field;
  for (size_t i = 4; i-- > 0;) value = (value << 8) | static_cast<unsigned char>(bytes.at(at + i));
  return value;
}

// Xors 4 bytes of entry `name`: mid-data for kPayload, else a header field alike in the local
// and central header (name at 46, field 2 bytes further) so only the entry itself is wrong.
void Damage(std::string& bytes, const std::string& name, size_t field, uint32_t mask) {
  std::vector<size_t> where = {bytes.find(name) - 30 + field, bytes.rfind(name) - 46 + field + 2};
  if (field == kPayload) where = {bytes.find(name) + Field(bytes, name, kCompressedSize) / 2};
  for (size_t at : where)
    for (size_t i = 0; i < 4; ++i) bytes.at(at + i) ^= static_cast<char>(mask >> (8 * i));
}

TEST(PlatformZip, EntriesAreListedInOrderAndReadWholeAndInPiecesByteExact) {
  kaltest::TempDir dir;
  // geo/big.bin is large enough for its compressed payload to get a mapping of its own.
  const std::vector<kaltest::Entry> own = {{"root.xml", "<Root>" + Bytes(20000, 3) + "</Root>"},
                                           {"geo/mesh.bin", Bytes(200000, 7, false), false},
                                           {"geo/big.bin", Bytes(24u << 20, 42)},
                                           {"empty.txt", ""}};
  kaltest::WriteArchive(dir.File("libzip.zip"), own);
  ASSERT_GT(Field(kaltest::ReadFile(dir.File("libzip.zip")), "geo/big.bin", kCompressedSize),
            4u << 20);
  // Read from a pipe, zip cannot seek back: sizes and CRC follow the data in a descriptor.
  kaltest::WriteFile(dir.File("piped.src"), Bytes(70000, 5));
  const std::string zip = "cd '" + dir.Path() + "' && zip -q -X streamed.zip - < piped.src";
  ASSERT_EQ(std::system(zip.c_str()), 0);

  using Case = std::pair<const char*, std::vector<kaltest::Entry>>;
  for (const auto& [archive, entries] :
       {Case{"libzip.zip", own}, Case{"streamed.zip", {{"-", Bytes(70000, 5)}}}}) {
    KalSysZipFile zip;
    ASSERT_EQ(Open(zip, dir.File(archive)), S_OK);
    std::string toc = "0";
    for (const auto& e : entries) toc += "," + e.name + ":" + std::to_string(e.content.size());
    EXPECT_EQ(Toc(zip), toc);
    EXPECT_EQ(OpenEntry(zip, "missing.xml"), E_FAIL);
    for (const auto& e : entries) {
      // One call for the whole entry (then one that must find nothing more), or many.
      for (const Sizes& pieces : {Sizes{unsigned(e.content.size())}, Sizes{1, 7, 4093, 65537}}) {
        std::string data;
        ASSERT_EQ(OpenEntry(zip, e.name.c_str()), S_OK) << e.name;
        EXPECT_EQ(ReadEntry(zip, pieces, &data), S_OK) << e.name;
        EXPECT_TRUE(data == e.content) << e.name << " read in pieces of " << pieces[0];
      }
    }
  }
}

TEST(PlatformZip, BrokenFilesAreNoArchivesAndDamagedEntriesFailSparingTheOthers) {
  kaltest::TempDir dir;
  // A deflated and a stored entry of some size to damage, and one to leave intact.
  kaltest::WriteArchive(dir.File("good.zip"), {{"text.bin", Bytes(300000, 77)},
                                               {"blob.bin", Bytes(50000, 78, false), false},
                                               {"ok.txt", "fine"}});
  const std::string good = kaltest::ReadFile(dir.File("good.zip"));
  std::vector<std::string> paths = {dir.File("missing.vorla"), dir.Path(), ""};
  for (const std::string& content :
       {std::string("<?xml version=\"1.0\"?><Root/>"), std::string(), good.substr(1),
        good.substr(0, good.size() / 2), good.substr(0, good.size() - 1),
        good.substr(0, good.size() - 22), Bytes(100000, 1, false)}) {
    paths.push_back(dir.File("file" + std::to_string(paths.size())));
    kaltest::WriteFile(paths.back(), content);
  }
  for (const std::string& path : paths) {  // which also closes the archive open before
    KalSysZipFile zip;
    std::string data;
    ASSERT_EQ(Open(zip, dir.File("good.zip")), S_OK);
    ASSERT_EQ(OpenEntry(zip, "ok.txt"), S_OK);
    EXPECT_EQ(Open(zip, path), S_FALSE) << path;
    EXPECT_EQ(Toc(zip) + "|" + std::to_string(ReadEntry(zip, {4}, &data)) + data,
              std::to_string(E_FAIL) + "|" + std::to_string(E_FAIL));
    EXPECT_EQ(OpenEntry(zip, "ok.txt"), E_FAIL);
  }
  KalSysZipFile none;
  EXPECT_EQ(none.OpenZip(nullptr, KAL_ZIP_READ), S_FALSE);

  using Case = std::tuple<const char*, size_t, uint32_t>;  // sizes change by +16 and -32 bytes
  for (const auto& [entry, field, mask] :
       {Case{"text.bin", kPayload, 0x5A}, Case{"blob.bin", kPayload, 0x5A},
        Case{"text.bin", kCrc, 1}, Case{"text.bin", kSize, 0x10}, Case{"text.bin", kSize, 0x20}}) {
    SCOPED_TRACE(entry + std::string(" at ") + std::to_string(field));
    std::string bytes = good, whole, pieces, other;
    Damage(bytes, entry, field, mask);
    kaltest::WriteFile(dir.File("bad.zip"), bytes);
    const unsigned int declared = Field(bytes, entry, kSize);
    KalSysZipFile zip;
    ASSERT_EQ(Open(zip, dir.File("bad.zip")), S_OK);
    ASSERT_EQ(OpenEntry(zip, entry), S_OK);
    EXPECT_EQ(ReadEntry(zip, {declared}, &whole), kEntryInvalid);
    EXPECT_EQ(whole.size(), 0u) << "a failed whole read hands out nothing";
    ASSERT_EQ(OpenEntry(zip, entry), S_OK);
    EXPECT_EQ(ReadEntry(zip, {8192}, &pieces), kEntryInvalid);
    EXPECT_LT(pieces.size(), declared);
    EXPECT_EQ(ReadEntry(zip, {8192}, &pieces), E_FAIL) << "a damaged entry stays unreadable";
    ASSERT_EQ(OpenEntry(zip, "ok.txt"), S_OK);
    EXPECT_EQ(ReadEntry(zip, {4}, &other), S_OK);
    EXPECT_EQ(other, "fine");
  }
  // A declared size that no payload of this archive can hold is refused before a read could
  // size a buffer from it.
  std::string bytes = good;
  for (const char* name : {"text.bin", "blob.bin"})
    Damage(bytes, name, kSize, Field(bytes, name, kSize) ^ 0x7FFFFFFFu);
  kaltest::WriteFile(dir.File("bad.zip"), bytes);
  KalSysZipFile zip;
  ASSERT_EQ(Open(zip, dir.File("bad.zip")), S_OK);
  for (const char* name : {"text.bin", "blob.bin"}) EXPECT_EQ(OpenEntry(zip, name), kEntryInvalid);
}

}  // namespace
