// Archive access: what OpenZip takes for an archive, whole and piecewise reads, damage.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "KalSysZipFile.h"
#include "TestDocuments.h"

namespace {

// Pseudo-random bytes: over 16 letters they deflate to about half, otherwise not at all.
std::string Bytes(size_t size, uint32_t seed, bool compressible = true) {
  std::string out(size, '\0');
  uint32_t state = seed;
  for (size_t i = 0; i < size; ++i) {
    state = state * 1103515245u + 12345u;
    out[i] = static_cast<char>(compressible ? 'a' + ((state >> 16) & 15u) : state >> 24);
  }
  return out;
}

int Open(KalSysZipFile& zip, const std::string& path) {
  const KalUnicodeString name(path.c_str());
  return zip.OpenZip(&name, KAL_ZIP_READ | KAL_ZIP_CHECK_CONSISTENCY);
}

int OpenEntry(KalSysZipFile& zip, const std::string& name) {
  const KalUnicodeString entry(name.c_str());
  return zip.OpenFileInZip(&entry, KAL_ZIP_READ, 0);
}

// Entry name -> size, from the table of contents.
std::map<std::string, unsigned int> Browse(KalSysZipFile& zip) {
  KalUnicodeString* names = nullptr;
  unsigned int count = 0, *sizes = nullptr;
  EXPECT_EQ(zip.BrowseZip(&names, &count, &sizes, nullptr, nullptr), 0);
  std::map<std::string, unsigned int> out;
  for (unsigned int i = 0; i < count; ++i) out[names[i].ConvertToChar()] = sizes[i];
  delete[] names;
  delete[] sizes;
  return out;
}

// Reads the open entry into `data` with calls of the given sizes in turn, until one fails or
// reads nothing; gives the result of the last call.
int ReadEntry(KalSysZipFile& zip, const std::vector<unsigned int>& pieces, std::string* data) {
  int rc = 0;
  for (size_t call = 0; rc == 0 && call < 100000; ++call) {
    const unsigned int size = pieces[call % pieces.size()];
    std::unique_ptr<char[]> buffer(new char[size + 1]);
    unsigned int read = 0xDEADu;
    rc = zip.ReadBufferInZip(buffer.get(), size, &read);
    EXPECT_LE(read, size);
    data->append(buffer.get(), read <= size ? read : 0);
    if (read == 0) break;
  }
  return rc;
}

constexpr size_t kCrc = 14, kCompressedSize = 18, kSize = 22, kPayload = 0;

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
  const size_t local = bytes.find(name) - 30;
  std::vector<size_t> where = {local + field, bytes.rfind(name) - 46 + field + 2};
  if (field == kPayload) where = {local + 30 + Field(bytes, name, kCompressedSize) / 2};
  for (size_t at : where)
    for (size_t i = 0; i < 4; ++i) bytes.at(at + i) ^= static_cast<char>(mask >> (8 * i));
}

TEST(PlatformZipRead, EntriesWrittenByLibzipAndTheZipProgramReadWholeAndInPiecesByteExact) {
  kaltest::TempDir dir;
  const std::string xml = "<Root>" + Bytes(20000, 3) + "</Root>", raw = Bytes(200000, 7, false);
  // Large enough for its compressed payload to get a mapping of its own on a whole read.
  const std::string big = Bytes(24u << 20, 42), piped = Bytes(70000, 5), empty;
  kaltest::WriteArchive(dir.File("libzip.zip"), {{"root.xml", xml, true},
                                                 {"geo/part.bin", raw, false},
                                                 {"geo/big.bin", big, true},
                                                 {"empty.txt", empty, true}});
  kaltest::WriteFile(dir.File("root.xml"), xml);
  kaltest::WriteFile(dir.File("piped.src"), piped);
  const std::string zip = "cd '" + dir.Path() + "' && zip -q -X ";
  ASSERT_EQ(std::system((zip + "deflated.zip root.xml").c_str()), 0);
  ASSERT_EQ(std::system((zip + "-0 stored.zip root.xml").c_str()), 0);
  // Read from a pipe, zip cannot seek back: sizes and CRC follow the data in a descriptor.
  ASSERT_EQ(std::system((zip + "streamed.zip - < piped.src").c_str()), 0);
  ASSERT_GT(Field(kaltest::ReadFile(dir.File("libzip.zip")), "geo/big.bin", kCompressedSize),
            4u << 20);

  using Case = std::tuple<const char*, const char*, const std::string*>;
  const Case cases[] = {{"libzip.zip", "root.xml", &xml},    {"libzip.zip", "geo/part.bin", &raw},
                        {"libzip.zip", "geo/big.bin", &big}, {"libzip.zip", "empty.txt", &empty},
                        {"deflated.zip", "root.xml", &xml},  {"stored.zip", "root.xml", &xml},
                        {"streamed.zip", "-", &piped}};
  for (const auto& [archive, entry, content] : cases) {
    SCOPED_TRACE(std::string(archive) + ":" + entry);
    KalSysZipFile zip;
    ASSERT_EQ(Open(zip, dir.File(archive)), 0);
    const unsigned int size = Browse(zip).at(entry);
    // One call for the whole entry (then one that must find nothing more), or many.
    for (const std::vector<unsigned int>& pieces :
         {std::vector<unsigned int>{size}, std::vector<unsigned int>{1, 7, 4093, 65537}}) {
      ASSERT_EQ(OpenEntry(zip, entry), 0);
      std::string data;
      EXPECT_EQ(ReadEntry(zip, pieces, &data), 0);
      EXPECT_TRUE(data == *content);
    }
  }
}

TEST(PlatformZipArchive, PlainMissingTruncatedAndRandomFilesAreNotArchives) {
  kaltest::TempDir dir;
  kaltest::WriteArchive(dir.File("whole.vorla"), {{"root.xml", Bytes(9000, 2)}});
  const std::string whole = kaltest::ReadFile(dir.File("whole.vorla"));
  std::vector<std::string> paths = {dir.File("missing.vorla"), dir.Path(), ""};
  for (const std::string& content :
       {std::string("<?xml version=\"1.0\"?><Root/>"), std::string(), whole.substr(1),
        whole.substr(0, whole.size() / 2), whole.substr(0, whole.size() - 1),
        whole.substr(0, whole.size() - 22), Bytes(100000, 1, false)}) {
    paths.push_back(dir.File("file" + std::to_string(paths.size())));
    kaltest::WriteFile(paths.back(), content);
  }
  for (const std::string& path : paths) {
    SCOPED_TRACE(path + ", which leaves nothing of the archive open before");
    KalSysZipFile zip;
    ASSERT_EQ(Open(zip, dir.File("whole.vorla")), 0);
    ASSERT_EQ(OpenEntry(zip, "root.xml"), 0);
    EXPECT_NE(Open(zip, path), 0);
    unsigned int count = 0;
    EXPECT_LT(zip.BrowseZip(nullptr, &count, nullptr, nullptr, nullptr), 0);
    std::string data;
    EXPECT_LT(ReadEntry(zip, {4}, &data), 0);
    EXPECT_LT(OpenEntry(zip, "root.xml"), 0);
  }
  KalSysZipFile zip;
  EXPECT_NE(zip.OpenZip(nullptr, KAL_ZIP_READ), 0);
  EXPECT_LT(OpenEntry(zip, "root.xml"), 0);
}

TEST(PlatformZipDamage, DamagedEntriesFailWithoutHandingOutTheirBytesAndSpareTheOthers) {
  kaltest::TempDir dir;
  // A deflated and a stored entry of some size to damage, and one to leave intact.
  kaltest::WriteArchive(dir.File("good.zip"), {{"text.bin", Bytes(300000, 77), true},
                                               {"blob.bin", Bytes(50000, 78, false), false},
                                               {"ok.txt", "fine"}});
  const std::string good = kaltest::ReadFile(dir.File("good.zip"));
  using Case = std::tuple<const char*, size_t, uint32_t>;  // sizes change by +16 and -32 bytes
  for (const auto& [entry, field, mask] :
       {Case{"text.bin", kPayload, 0x5A}, Case{"blob.bin", kPayload, 0x5A},
        Case{"text.bin", kCrc, 1}, Case{"text.bin", kSize, 0x10}, Case{"text.bin", kSize, 0x20}}) {
    SCOPED_TRACE(entry + std::string(" at ") + std::to_string(field));
    std::string bytes = good;
    Damage(bytes, entry, field, mask);
    kaltest::WriteFile(dir.File("bad.zip"), bytes);
    const unsigned int declared = Field(bytes, entry, kSize);
    KalSysZipFile zip;
    ASSERT_EQ(Open(zip, dir.File("bad.zip")), 0);
    std::string whole, pieces, other;
    ASSERT_EQ(OpenEntry(zip, entry), 0);
    EXPECT_LT(ReadEntry(zip, {declared}, &whole), 0);
    EXPECT_EQ(whole.size(), 0u) << "a failed whole read hands out nothing";
    ASSERT_EQ(OpenEntry(zip, entry), 0);
    EXPECT_LT(ReadEntry(zip, {8192}, &pieces), 0);
    EXPECT_LT(pieces.size(), declared);
    ASSERT_EQ(OpenEntry(zip, "ok.txt"), 0);
    EXPECT_TRUE(ReadEntry(zip, {4}, &other) == 0 && other == "fine") << other;
  }

  // An absurd declared size is refused without growing memory. A reader sizes its buffer from
  // the table of contents: untouched, it costs next to nothing (a sanitizer's shadow of it
  // aside, hence measured only from here on).
  constexpr unsigned int kAbsurd = 0x7FFFFFFFu;
  std::string bytes = good;
  for (const char* name : {"text.bin", "blob.bin"}) {
    Damage(bytes, name, kSize, Field(bytes, name, kSize) ^ kAbsurd);
  }
  kaltest::WriteFile(dir.File("bad.zip"), bytes);
  KalSysZipFile zip;
  ASSERT_EQ(Open(zip, dir.File("bad.zip")), 0);
  std::unique_ptr<char[]> buffer(new char[kAbsurd]);
  const long before = kaltest::PeakResidentBytes();
  for (const char* name : {"text.bin", "blob.bin"}) {
    SCOPED_TRACE(name);
    EXPECT_LT(OpenEntry(zip, name), 0);
    unsigned int read = 1;
    EXPECT_LT(zip.ReadBufferInZip(buffer.get(), kAbsurd, &read), 0);
    EXPECT_EQ(read, 0u);
  }
  EXPECT_LT(kaltest::PeakResidentBytes() - before, 64L << 20);
}

}  // namespace
