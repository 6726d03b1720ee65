// Archive access: what OpenZip takes for an archive, whole and piecewise reads, damage.
#include <cstdint>

#include "KalHResult.h"
#include "KalSysZipFile.h"
#include "TestDocuments.h"

namespace kaltest {
namespace {

constexpr int kEntryInvalid = static_cast<int>(0x8007000Du);
constexpr size_t kCrc = 14, kSize = 22, kPayload = 0;  // offsets in the local header
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

int Open(KalSysZipFile& zip, const KalUnicodeString& path) {
  return zip.OpenZip(&path, KAL_ZIP_READ | KAL_ZIP_CHECK_CONSISTENCY);
}
int OpenEntry(KalSysZipFile& zip, const KalUnicodeString& name) {
  return zip.OpenFileInZip(&name, KAL_ZIP_READ, 0);
}

// "rc,name:size,..." from the table of contents.
std::string Toc(KalSysZipFile& zip) {
  KalUnicodeString* names = nullptr;
  unsigned int count = 0, *sizes = nullptr;
  std::string out = std::to_string(zip.BrowseZip(&names, &count, &sizes, nullptr, nullptr));
  for (unsigned int i = 0; i < count; ++i)
    out += std::string(",") + names[i].ConvertToChar() + ":" + std::to_string(sizes[i]);
  delete[] names, delete[] sizes;
  return out;
}

// Reads the open entry with calls of these sizes in turn until one fails or reads nothing.
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

// Xors 4 bytes of entry `name`: inside its data for kPayload, else a header field alike in the
// local and central header (name at 30 and 46, field 2 bytes further in the central one) so only
// the entry itself is wrong.
void Damage(std::string& bytes, const std::string& name, size_t field, uint32_t mask) {
  std::vector<size_t> where = {bytes.find(name) - 30 + field, bytes.rfind(name) - 46 + field + 2};
  if (field == kPayload) where = {bytes.find(name) + 20000};
  for (size_t at : where)
    for (size_t i = 0; i < 4; ++i) bytes.at(at + i) ^= static_cast<char>(mask >> (8 * i));
}

TEST(PlatformZip, EntriesAreListedInOrderAndReadWholeAndInPiecesByteExact) {
  TempDir dir;
  // geo/big.bin is large enough for its compressed payload to get a mapping of its own.
  const std::vector<Entry> own = {{"root.xml", "<Root>" + Bytes(20000, 3) + "</Root>"},
                                  {"geo/mesh.bin", Bytes(200000, 7, false), false},
                                  {"geo/big.bin", Bytes(24u << 20, 42)},
                                  {"empty.txt", ""}};
  WriteArchive(dir.File("libzip.zip"), own);
  ASSERT_GT(ReadFile(dir.File("libzip.zip")).size(), (4u << 20) + 300000);
  // Read from a pipe, zip cannot seek back: sizes and CRC follow the data in a descriptor.
  WriteFile(dir.File("piped.src"), Bytes(70000, 5));
  const std::string zip = "cd '" + dir.Path() + "' && zip -q -X streamed.zip - < piped.src";
  ASSERT_EQ(std::system(zip.c_str()), 0);

  using Case = std::pair<const char*, std::vector<Entry>>;
  for (const auto& [archive, entries] :
       {Case{"libzip.zip", own}, Case{"streamed.zip", {{"-", Bytes(70000, 5)}}}}) {
    KalSysZipFile zip;
    ASSERT_EQ(Open(zip, dir.File(archive).c_str()), S_OK);
    std::string toc = "0";
    for (const auto& e : entries) toc += "," + e.name + ":" + std::to_string(e.content.size());
    EXPECT_EQ(Toc(zip), toc);
    EXPECT_EQ(OpenEntry(zip, "missing.xml"), E_FAIL);
    for (const auto& e : entries)  // in one call (then one that finds nothing more), or many
      for (const Sizes& pieces : {Sizes{unsigned(e.content.size())}, Sizes{1, 7, 4093, 65537}}) {
        std::string data;
        ASSERT_EQ(OpenEntry(zip, e.name.c_str()), S_OK) << e.name;
        EXPECT_EQ(ReadEntry(zip, pieces, &data), S_OK) << e.name;
        EXPECT_TRUE(data == e.content) << e.name << " read in pieces of " << pieces[0];
      }
  }
}

TEST(PlatformZip, BrokenFilesAreNoArchivesAndDamagedEntriesFailSparingTheOthers) {
  TempDir dir;
  // A deflated and a stored entry to damage (past 20000 bytes of data), one to leave intact.
  WriteArchive(dir.File("good.zip"), {{"text.bin", Bytes(300000, 77)},
                                      {"blob.bin", Bytes(50000, 78, false), false},
                                      {"ok.txt", "fine"}});
  const std::string good = ReadFile(dir.File("good.zip"));
  std::vector<std::string> paths = {dir.File("missing.vorla"), dir.Path(), ""};
  for (const std::string& content :
       {std::string("<?xml version=\"1.0\"?><Root/>"), std::string(), good.substr(1),
        good.substr(0, good.size() / 2), good.substr(0, good.size() - 1),
        good.substr(0, good.size() - 22), Bytes(100000, 1, false)}) {
    paths.push_back(dir.File("file" + std::to_string(paths.size())));
    WriteFile(paths.back(), content);
  }
  for (const std::string& path : paths) {  // which also closes the archive open before
    KalSysZipFile zip;
    std::string data;
    ASSERT_EQ(Open(zip, dir.File("good.zip").c_str()), S_OK);
    ASSERT_EQ(OpenEntry(zip, "ok.txt"), S_OK);
    EXPECT_EQ(Open(zip, path.c_str()), S_FALSE) << path;
    EXPECT_EQ(Toc(zip) + "|" + std::to_string(ReadEntry(zip, {4}, &data)) + data,
              std::to_string(E_FAIL) + "|" + std::to_string(E_FAIL));
    EXPECT_EQ(OpenEntry(zip, "ok.txt"), E_FAIL);
  }
  KalSysZipFile none;
  EXPECT_EQ(none.OpenZip(nullptr, KAL_ZIP_READ), S_FALSE);

  using Case = std::tuple<const char*, size_t, uint32_t, unsigned int>;  // ..., declared size
  for (const auto& [entry, field, mask, declared] :
       {Case{"text.bin", kPayload, 0x5A, 300000}, Case{"blob.bin", kPayload, 0x5A, 50000},
        Case{"text.bin", kCrc, 1, 300000}, Case{"text.bin", kSize, 0x10, 300016},
        Case{"text.bin", kSize, 0x20, 299968}}) {
    SCOPED_TRACE(entry + std::string(" at ") + std::to_string(field));
    std::string bytes = good, whole, pieces, other;
    Damage(bytes, entry, field, mask);
    WriteFile(dir.File("bad.zip"), bytes);
    KalSysZipFile zip;
    ASSERT_EQ(Open(zip, dir.File("bad.zip").c_str()), S_OK);
    ASSERT_EQ(OpenEntry(zip, entry), S_OK);
    EXPECT_EQ(ReadEntry(zip, {declared}, &whole), kEntryInvalid);
    EXPECT_EQ(whole.size(), 0u) << "a failed whole read hands out nothing";
    ASSERT_EQ(OpenEntry(zip, entry), S_OK);
    EXPECT_EQ(ReadEntry(zip, {8192}, &pieces), kEntryInvalid);
    EXPECT_LT(pieces.size(), declared);
    EXPECT_EQ(ReadEntry(zip, {8192}, &pieces), E_FAIL) << "a damaged entry stays unreadable";
    ASSERT_EQ(OpenEntry(zip, "ok.txt"), S_OK);
    EXPECT_EQ(std::to_string(ReadEntry(zip, {4}, &other)) + other, "0fine");
  }
  // A declared size that no payload of this archive can hold, or a stored entry's that is not
  // its payload's (16 smaller or 32 larger), is refused before a read could size a buffer.
  std::string bytes = good;
  Damage(bytes, "text.bin", kSize, 300000 ^ 0x0FFFFFFFu);
  for (uint32_t mask : {50000 ^ 0x0FFFFFFFu, 0x10u, 0x20u}) {
    std::string stored = bytes;
    Damage(stored, "blob.bin", kSize, mask);
    WriteFile(dir.File("bad.zip"), stored);
    KalSysZipFile zip;
    ASSERT_EQ(Open(zip, dir.File("bad.zip").c_str()), S_OK);
    for (const char* name : {"text.bin", "blob.bin"})
      EXPECT_EQ(OpenEntry(zip, name), kEntryInvalid) << name << " " << mask;
  }
}

}  // namespace
}  // namespace kaltest
