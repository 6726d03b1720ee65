// Archive access: what OpenZip takes for an archive, the table of contents, whole and
// piecewise entry reads, and damaged archives.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "KalSysZipFile.h"
#include "TestDocuments.h"

namespace {

using kaltest::Entry;
using kaltest::TempDir;

constexpr int kOpenMode = KAL_ZIP_READ | KAL_ZIP_CHECK_CONSISTENCY;

uint32_t Crc32(const std::string& data) {
  uint32_t crc = 0xFFFFFFFFu;
  for (unsigned char byte : data) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

// Text over a 16-letter alphabet: it deflates to about half, so a large entry keeps a large
// compressed payload too.
std::string CompressibleBytes(size_t size, uint32_t seed) {
  static const char kAlphabet[] = "<>/= abcdefghij\n";
  std::string out(size, '\0');
  uint32_t state = seed | 1u;
  for (size_t i = 0; i < size; ++i) {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    out[i] = kAlphabet[state & 15u];
  }
  return out;
}

std::string RandomBytes(size_t size, uint32_t seed) {
  std::string out(size, '\0');
  uint32_t state = seed | 1u;
  for (size_t i = 0; i < size; ++i) {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    out[i] = static_cast<char>(state >> 24);
  }
  return out;
}

// Where an entry lives in the bytes of an archive file.
struct EntryLayout {
  size_t central = 0;  // its central directory header
  size_t local = 0;    // its local header
  size_t data = 0;     // its first data byte
  uint32_t compressedSize = 0;
};

uint32_t Get(const std::string& bytes, size_t at, int width) {
  uint32_t value = 0;
  for (int i = width - 1; i >= 0; --i) {
    value = (value << 8) | static_cast<unsigned char>(bytes.at(at + static_cast<size_t>(i)));
  }
  return value;
}

void Put(std::string& bytes, size_t at, int width, uint32_t value) {
  for (int i = 0; i < width; ++i) {
    bytes.at(at + static_cast<size_t>(i)) = static_cast<char>(value >> (8 * i));
  }
}

EntryLayout Locate(const std::string& bytes, const std::string& name) {
  const size_t eocd = bytes.rfind(std::string("PK\5\6", 4));
  if (eocd == std::string::npos) throw std::runtime_error("no end of central directory");
  const uint32_t entries = Get(bytes, eocd + 10, 2);
  size_t at = Get(bytes, eocd + 16, 4);
  for (uint32_t i = 0; i < entries; ++i) {
    const uint32_t nameLength = Get(bytes, at + 28, 2);
    const size_t next = at + 46 + nameLength + Get(bytes, at + 30, 2) + Get(bytes, at + 32, 2);
    if (bytes.compare(at + 46, nameLength, name) == 0) {
      EntryLayout layout;
      layout.central = at;
      layout.local = Get(bytes, at + 42, 4);
      layout.data =
          layout.local + 30 + Get(bytes, layout.local + 26, 2) + Get(bytes, layout.local + 28, 2);
      layout.compressedSize = Get(bytes, at + 20, 4);
      return layout;
    }
    at = next;
  }
  throw std::runtime_error("no entry " + name);
}

// A header field, patched alike in the central directory and the local header so that the
// archive stays consistent and only the entry itself is wrong.
enum class Field { kMethod, kCrc, kCompressedSize, kSize };

void PatchField(std::string& bytes, const EntryLayout& layout, Field field, uint32_t value) {
  switch (field) {
    case Field::kMethod:
      Put(bytes, layout.central + 10, 2, value);
      Put(bytes, layout.local + 8, 2, value);
      break;
    case Field::kCrc:
      Put(bytes, layout.central + 16, 4, value);
      Put(bytes, layout.local + 14, 4, value);
      break;
    case Field::kCompressedSize:
      Put(bytes, layout.central + 20, 4, value);
      Put(bytes, layout.local + 18, 4, value);
      break;
    case Field::kSize:
      Put(bytes, layout.central + 24, 4, value);
      Put(bytes, layout.local + 22, 4, value);
      break;
  }
}

void PatchArchive(const std::string& path, const std::string& name, Field field, uint32_t value) {
  std::string bytes = kaltest::ReadFile(path);
  PatchField(bytes, Locate(bytes, name), field, value);
  kaltest::WriteFile(path, bytes);
}

int Open(KalSysZipFile& zip, const std::string& path) {
  const KalUnicodeString name(path.c_str());
  return zip.OpenZip(&name, kOpenMode);
}

int OpenEntry(KalSysZipFile& zip, const std::string& name) {
  const KalUnicodeString entry(name.c_str());
  return zip.OpenFileInZip(&entry, KAL_ZIP_READ, 0);
}

struct ReadOutcome {
  int rc = 0;
  std::string data;
};

// One ReadBufferInZip call of `size` bytes on the open entry.
ReadOutcome ReadOnce(KalSysZipFile& zip, unsigned int size) {
  std::unique_ptr<char[]> buffer(new char[size == 0 ? 1 : size]);
  unsigned int read = 0xDEADu;
  ReadOutcome out;
  out.rc = zip.ReadBufferInZip(buffer.get(), size, &read);
  EXPECT_LE(read, size);
  out.data.assign(buffer.get(), read <= size ? read : 0);
  return out;
}

// Reads the open entry in calls of the given sizes, in turn, until a call fails or reads
// nothing; rc is the first failure, or 0.
ReadOutcome ReadInPieces(KalSysZipFile& zip, const std::vector<unsigned int>& pieces,
                         size_t limit) {
  ReadOutcome out;
  for (size_t call = 0; call < limit / pieces.front() + 16; ++call) {
    const ReadOutcome piece = ReadOnce(zip, pieces[call % pieces.size()]);
    out.data += piece.data;
    if (piece.rc < 0) {
      out.rc = piece.rc;
      break;
    }
    if (piece.data.empty()) break;
  }
  return out;
}

struct Listing {
  unsigned int count = 0;
  std::vector<std::string> names;
  std::vector<unsigned int> sizes, compressed, crcs;
};

Listing Browse(KalSysZipFile& zip) {
  KalUnicodeString* names = nullptr;
  unsigned int *sizes = nullptr, *compressed = nullptr, *crcs = nullptr;
  Listing listing;
  EXPECT_EQ(zip.BrowseZip(&names, &listing.count, &sizes, &compressed, &crcs), 0);
  for (unsigned int i = 0; i < listing.count; ++i) {
    listing.names.push_back(names[i].ConvertToChar());
    listing.sizes.push_back(sizes[i]);
    listing.compressed.push_back(compressed[i]);
    listing.crcs.push_back(crcs[i]);
  }
  delete[] names;
  delete[] sizes;
  delete[] compressed;
  delete[] crcs;
  return listing;
}

std::string Quoted(const std::string& path) { return "'" + path + "'"; }

TEST(PlatformZipArchive, BrowseListsLibzipEntriesInArchiveOrderWithSizesAndCrcs) {
  TempDir dir;
  const std::vector<Entry> entries = {
      {"Manifest.xml", kaltest::ManifestXml("root.xml"), true},
      {"root.xml", "<Root>" + std::string(5000, 'x') + "</Root>", true},
      {"geo/part.bin", RandomBytes(3000, 7), false},
      {"empty.txt", "", true},
  };
  kaltest::WriteArchive(dir.File("a.vorla"), entries);

  KalSysZipFile zip;
  ASSERT_EQ(Open(zip, dir.File("a.vorla")), 0);
  const Listing listing = Browse(zip);
  ASSERT_EQ(listing.count, entries.size());
  for (size_t i = 0; i < entries.size(); ++i) {
    SCOPED_TRACE(entries[i].name);
    EXPECT_EQ(listing.names[i], entries[i].name);
    EXPECT_EQ(listing.sizes[i], entries[i].content.size());
    EXPECT_EQ(listing.crcs[i], Crc32(entries[i].content));
  }
  EXPECT_EQ(listing.compressed[2], 3000u) << "a stored entry keeps its size";
  EXPECT_LT(listing.compressed[1], 1000u) << "a deflated run of 'x' shrinks";
}

TEST(PlatformZipArchive, BrowseFillsOnlyTheOutputsAskedFor) {
  TempDir dir;
  kaltest::WriteArchive(dir.File("a.zip"), {{"one", "1"}, {"two", "22"}});
  KalSysZipFile zip;
  ASSERT_EQ(Open(zip, dir.File("a.zip")), 0);
  KalUnicodeString* names = nullptr;
  unsigned int count = 0;
  unsigned int* sizes = nullptr;
  ASSERT_EQ(zip.BrowseZip(&names, &count, &sizes, nullptr, nullptr), 0);
  ASSERT_EQ(count, 2u);
  EXPECT_TRUE(names[1] == "two");
  EXPECT_EQ(sizes[1], 2u);
  delete[] names;
  delete[] sizes;
  count = 0;
  EXPECT_EQ(zip.BrowseZip(nullptr, &count, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(count, 2u);
}

TEST(PlatformZipArchive, ReadsStoredDeflatedAndStreamedEntriesWrittenByZipCommand) {
  TempDir dir;
  const std::string xml = "<Root>" + CompressibleBytes(20000, 3) + "</Root>";
  const std::string big = CompressibleBytes(6u << 20, 11);
  const std::string piped = CompressibleBytes(70000, 5);
  kaltest::WriteFile(dir.File("root.xml"), xml);
  ASSERT_EQ(std::system(("mkdir " + Quoted(dir.File("geo"))).c_str()), 0);
  kaltest::WriteFile(dir.File("geo/big.bin"), big);
  kaltest::WriteFile(dir.File("piped.src"), piped);
  const std::string cd = "cd " + Quoted(dir.Path()) + " && ";
  ASSERT_EQ(std::system((cd + "zip -q -X deflated.zip root.xml geo/big.bin").c_str()), 0);
  ASSERT_EQ(std::system((cd + "zip -q -X -0 stored.zip root.xml").c_str()), 0);
  // Read from a pipe, zip cannot seek back: sizes and CRC follow the data in a descriptor.
  ASSERT_EQ(std::system((cd + "zip -q -X streamed.zip - < piped.src").c_str()), 0);

  struct Case {
    const char* archive;
    const char* entry;
    const std::string* content;
  } cases[] = {{"deflated.zip", "root.xml", &xml},
               {"deflated.zip", "geo/big.bin", &big},
               {"stored.zip", "root.xml", &xml},
               {"streamed.zip", "-", &piped}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.archive) + ":" + c.entry);
    KalSysZipFile zip;
    ASSERT_EQ(Open(zip, dir.File(c.archive)), 0);
    const Listing listing = Browse(zip);
    size_t index = 0;
    while (index < listing.names.size() && listing.names[index] != c.entry) ++index;
    ASSERT_LT(index, listing.names.size());
    EXPECT_EQ(listing.sizes[index], c.content->size());
    EXPECT_EQ(listing.crcs[index], Crc32(*c.content));

    ASSERT_EQ(OpenEntry(zip, c.entry), 0);
    const ReadOutcome whole = ReadOnce(zip, listing.sizes[index]);
    EXPECT_EQ(whole.rc, 0);
    EXPECT_TRUE(whole.data == *c.content);
    ASSERT_EQ(OpenEntry(zip, c.entry), 0);
    const ReadOutcome pieces = ReadInPieces(zip, {4093, 65536}, c.content->size());
    EXPECT_EQ(pieces.rc, 0);
    EXPECT_TRUE(pieces.data == *c.content);
  }
}

TEST(PlatformZipArchive, PlainXmlMissingEmptyAndDirectoryPathsAreNotArchives) {
  TempDir dir;
  kaltest::WriteFile(dir.File("doc.xml"), "<?xml version=\"1.0\"?><Root/>");
  kaltest::WriteFile(dir.File("empty.vorla"), "");
  const std::string paths[] = {dir.File("doc.xml"), dir.File("empty.vorla"),
                               dir.File("missing.vorla"), dir.Path(), ""};
  for (const std::string& path : paths) {
    SCOPED_TRACE(path);
    KalSysZipFile zip;
    EXPECT_NE(Open(zip, path), 0);
    unsigned int count = 0;
    EXPECT_LT(zip.BrowseZip(nullptr, &count, nullptr, nullptr, nullptr), 0);
    EXPECT_LT(OpenEntry(zip, "doc.xml"), 0);
  }
  KalSysZipFile zip;
  EXPECT_NE(zip.OpenZip(nullptr, kOpenMode), 0);
}

TEST(PlatformZipArchive, TruncatedArchivesAndRandomBytesAreNotArchives) {
  TempDir dir;
  kaltest::WriteVorlaArchive(dir.File("whole.vorla"), "root.xml",
                             "<Root>" + CompressibleBytes(9000, 2) + "</Root>");
  const std::string bytes = kaltest::ReadFile(dir.File("whole.vorla"));
  for (size_t cut :
       {size_t{1}, size_t{10}, size_t{21}, size_t{22}, bytes.size() / 2, bytes.size() - 30}) {
    SCOPED_TRACE(cut);
    kaltest::WriteFile(dir.File("cut.vorla"), bytes.substr(0, bytes.size() - cut));
    KalSysZipFile zip;
    EXPECT_NE(Open(zip, dir.File("cut.vorla")), 0);
  }
  for (uint32_t seed : {1u, 2u, 3u}) {
    kaltest::WriteFile(dir.File("noise.vorla"), RandomBytes(100000, seed));
    KalSysZipFile zip;
    EXPECT_NE(Open(zip, dir.File("noise.vorla")), 0);
  }
}

TEST(PlatformZipArchive, OpeningAnotherArchiveClosesTheFirstAndItsEntry) {
  TempDir dir;
  kaltest::WriteArchive(dir.File("a.zip"), {{"only-in-a", "aaaa"}});
  kaltest::WriteArchive(dir.File("b.zip"), {{"only-in-b", "bbbbbb"}, {"second", "2"}});
  KalSysZipFile zip;
  ASSERT_EQ(Open(zip, dir.File("a.zip")), 0);
  ASSERT_EQ(OpenEntry(zip, "only-in-a"), 0);
  ASSERT_EQ(Open(zip, dir.File("b.zip")), 0);

  EXPECT_LT(ReadOnce(zip, 4).rc, 0) << "the entry of the first archive is closed";
  const Listing listing = Browse(zip);
  EXPECT_EQ(listing.names, (std::vector<std::string>{"only-in-b", "second"}));
  EXPECT_LT(OpenEntry(zip, "only-in-a"), 0);
  ASSERT_EQ(OpenEntry(zip, "only-in-b"), 0);
  EXPECT_EQ(ReadOnce(zip, 6).data, "bbbbbb");

  EXPECT_NE(Open(zip, dir.File("missing.zip")), 0);
  unsigned int count = 0;
  EXPECT_LT(zip.BrowseZip(nullptr, &count, nullptr, nullptr, nullptr), 0)
      << "a failed open leaves no archive behind";
}

TEST(PlatformZipRead, LargeDeflatedEntryReadWholeMatchesByteForByte) {
  TempDir dir;
  const std::string big = CompressibleBytes(24u << 20, 42);
  kaltest::WriteVorlaArchive(dir.File("big.vorla"), "root.xml", "<Root/>",
                             {{"geo/big.bin", big, true}});
  KalSysZipFile zip;
  ASSERT_EQ(Open(zip, dir.File("big.vorla")), 0);
  const Listing listing = Browse(zip);
  ASSERT_EQ(listing.sizes[2], big.size());
  ASSERT_GT(listing.compressed[2], 4u << 20) << "the compressed payload is large too";
  ASSERT_LT(listing.compressed[2], big.size());

  ASSERT_EQ(OpenEntry(zip, "geo/big.bin"), 0);
  const ReadOutcome whole = ReadOnce(zip, listing.sizes[2]);
  EXPECT_EQ(whole.rc, 0);
  ASSERT_EQ(whole.data.size(), big.size());
  EXPECT_TRUE(whole.data == big);
  EXPECT_EQ(ReadOnce(zip, 100).data.size(), 0u) << "nothing follows the whole entry";
}

TEST(PlatformZipRead, SmallPiecesGiveTheSameBytesAsOneWholeRead) {
  TempDir dir;
  const std::string text = CompressibleBytes(3u << 20, 9);
  const std::string raw = RandomBytes(200000, 4);
  kaltest::WriteArchive(dir.File("a.zip"), {{"text", text, true}, {"raw", raw, false}});
  KalSysZipFile zip;
  ASSERT_EQ(Open(zip, dir.File("a.zip")), 0);
  for (const auto& [name, content] : {std::make_pair("text", &text), std::make_pair("raw", &raw)}) {
    SCOPED_TRACE(name);
    ASSERT_EQ(OpenEntry(zip, name), 0);
    const ReadOutcome pieces = ReadInPieces(zip, {1, 7, 4096, 65537, 333333}, content->size());
    EXPECT_EQ(pieces.rc, 0);
    EXPECT_EQ(pieces.data.size(), content->size());
    EXPECT_TRUE(pieces.data == *content);
  }
}

TEST(PlatformZipRead, ReadingPastTheEndGivesTheRestThenNothing) {
  TempDir dir;
  const std::string text = CompressibleBytes(10000, 1);
  kaltest::WriteArchive(dir.File("a.zip"), {{"text", text, true}, {"empty", "", true}});
  KalSysZipFile zip;
  ASSERT_EQ(Open(zip, dir.File("a.zip")), 0);
  ASSERT_EQ(OpenEntry(zip, "text"), 0);
  const ReadOutcome head = ReadOnce(zip, 4000);
  EXPECT_EQ(head.rc, 0);
  EXPECT_EQ(head.data, text.substr(0, 4000));
  const ReadOutcome rest = ReadOnce(zip, 50000);
  EXPECT_EQ(rest.rc, 0);
  EXPECT_EQ(rest.data, text.substr(4000));
  const ReadOutcome after = ReadOnce(zip, 10);
  EXPECT_EQ(after.rc, 0);
  EXPECT_EQ(after.data.size(), 0u);

  ASSERT_EQ(OpenEntry(zip, "empty"), 0);
  const ReadOutcome empty = ReadOnce(zip, 0);
  EXPECT_EQ(empty.rc, 0);
  EXPECT_EQ(empty.data.size(), 0u);
  EXPECT_EQ(ReadOnce(zip, 10).data.size(), 0u);
}

TEST(PlatformZipRead, EntryLookupIsExactAndCaseSensitive) {
  TempDir dir;
  kaltest::WriteArchive(dir.File("a.zip"), {{"root.xml", "<Root/>"}, {"geo/part.bin", "part"}});
  KalSysZipFile zip;
  ASSERT_EQ(Open(zip, dir.File("a.zip")), 0);
  for (const char* name : {"Root.xml", "root", "root.xml ", "part.bin", "geo/", "/geo/part.bin"}) {
    SCOPED_TRACE(name);
    EXPECT_LT(OpenEntry(zip, name), 0);
    EXPECT_LT(ReadOnce(zip, 4).rc, 0) << "a failed open leaves no entry to read";
  }
  ASSERT_EQ(OpenEntry(zip, "geo/part.bin"), 0);
  EXPECT_EQ(ReadOnce(zip, 4).data, "part");
}

TEST(PlatformZipRead, ReadNeedsAnOpenEntryAndOpeningAnotherReplacesIt) {
  TempDir dir;
  kaltest::WriteArchive(dir.File("a.zip"), {{"first", "1111"}, {"second", "2222"}});
  KalSysZipFile zip;
  EXPECT_LT(ReadOnce(zip, 4).rc, 0) << "no archive";
  ASSERT_EQ(Open(zip, dir.File("a.zip")), 0);
  EXPECT_LT(ReadOnce(zip, 4).rc, 0) << "no entry";
  ASSERT_EQ(OpenEntry(zip, "first"), 0);
  EXPECT_EQ(ReadOnce(zip, 2).data, "11");
  ASSERT_EQ(OpenEntry(zip, "second"), 0);
  EXPECT_EQ(ReadOnce(zip, 4).data, "2222") << "the new entry is read from its start";
  EXPECT_GE(zip.CloseFileInZip(), 0);
  EXPECT_LT(ReadOnce(zip, 4).rc, 0) << "closed";
}

// An archive with one deflated and one stored entry of some size, for damaging.
struct DamageFixture {
  TempDir dir;
  std::string path = dir.File("damaged.vorla");
  std::string text = CompressibleBytes(300000, 77);
  std::string raw = RandomBytes(50000, 78);
  DamageFixture() {
    kaltest::WriteArchive(path, {{"text", text, true}, {"raw", raw, false}, {"ok", "fine"}});
  }
};

// Whole reads and piecewise reads of a damaged entry: both fail, neither hands out all of
// the declared bytes, and the whole read hands out none.
void ExpectDamagedEntryFails(const std::string& path, const std::string& name,
                             unsigned int declared) {
  KalSysZipFile zip;
  ASSERT_EQ(Open(zip, path), 0);
  ASSERT_EQ(OpenEntry(zip, name), 0);
  const ReadOutcome whole = ReadOnce(zip, declared);
  EXPECT_LT(whole.rc, 0);
  EXPECT_EQ(whole.data.size(), 0u);

  ASSERT_EQ(OpenEntry(zip, name), 0);
  const ReadOutcome pieces = ReadInPieces(zip, {8192}, declared);
  EXPECT_LT(pieces.rc, 0);
  EXPECT_LT(pieces.data.size(), declared);

  ASSERT_EQ(OpenEntry(zip, "ok"), 0);
  EXPECT_EQ(ReadOnce(zip, 4).data, "fine") << "the other entries stay readable";
}

TEST(PlatformZipDamage, FlippedBytesInThePayloadGiveAShortReadAndFailure) {
  DamageFixture f;
  std::string bytes = kaltest::ReadFile(f.path);
  for (const char* name : {"text", "raw"}) {
    const EntryLayout layout = Locate(bytes, name);
    for (size_t i = 0; i < 16; ++i) bytes[layout.data + layout.compressedSize / 2 + i] ^= 0x5A;
  }
  kaltest::WriteFile(f.path, bytes);
  ExpectDamagedEntryFails(f.path, "text", f.text.size());
  ExpectDamagedEntryFails(f.path, "raw", f.raw.size());
}

TEST(PlatformZipDamage, WrongCrcInTheHeadersFailsTheRead) {
  DamageFixture f;
  PatchArchive(f.path, "text", Field::kCrc, Crc32(f.text) ^ 1u);
  PatchArchive(f.path, "raw", Field::kCrc, Crc32(f.raw) ^ 0x80000000u);
  ExpectDamagedEntryFails(f.path, "text", f.text.size());
  ExpectDamagedEntryFails(f.path, "raw", f.raw.size());
}

TEST(PlatformZipDamage, CompressedDataCutShortFailsTheRead) {
  DamageFixture f;
  const EntryLayout layout = Locate(kaltest::ReadFile(f.path), "text");
  PatchArchive(f.path, "text", Field::kCompressedSize, layout.compressedSize / 2);
  ExpectDamagedEntryFails(f.path, "text", f.text.size());
}

TEST(PlatformZipDamage, DeclaredSizeThatDisagreesWithTheDataFailsTheRead) {
  for (long delta : {-10L, 10L}) {
    SCOPED_TRACE(delta);
    DamageFixture f;
    const unsigned int declared =
        static_cast<unsigned int>(static_cast<long>(f.text.size()) + delta);
    PatchArchive(f.path, "text", Field::kSize, declared);
    ExpectDamagedEntryFails(f.path, "text", declared);
  }
}

TEST(PlatformZipDamage, AbsurdDeclaredSizeIsRefusedWithoutGrowingMemory) {
  DamageFixture f;
  constexpr unsigned int kAbsurd = 0x7FFFFFFFu;
  PatchArchive(f.path, "text", Field::kSize, kAbsurd);
  PatchArchive(f.path, "raw", Field::kSize, kAbsurd);
  KalSysZipFile zip;
  ASSERT_EQ(Open(zip, f.path), 0);
  const Listing listing = Browse(zip);
  ASSERT_EQ(listing.sizes[0], kAbsurd);

  // A reader sizes its buffer from the table of contents. Untouched, it costs next to
  // nothing (a sanitizer's shadow of it aside, hence measured only from here on).
  std::unique_ptr<char[]> buffer(new char[kAbsurd]);
  const long before = kaltest::PeakResidentBytes();
  for (const char* name : {"text", "raw"}) {
    SCOPED_TRACE(name);
    EXPECT_LT(OpenEntry(zip, name), 0);
    unsigned int read = 1;
    EXPECT_LT(zip.ReadBufferInZip(buffer.get(), kAbsurd, &read), 0);
    EXPECT_EQ(read, 0u);
  }
  EXPECT_LT(kaltest::PeakResidentBytes() - before, 64L << 20);
  ASSERT_EQ(OpenEntry(zip, "ok"), 0);
  EXPECT_EQ(ReadOnce(zip, 4).data, "fine");
}

TEST(PlatformZipDamage, UnknownCompressionMethodIsListedButRefused) {
  DamageFixture f;
  PatchArchive(f.path, "text", Field::kMethod, 77);
  KalSysZipFile zip;
  ASSERT_EQ(Open(zip, f.path), 0);
  const Listing listing = Browse(zip);
  EXPECT_EQ(listing.names[0], "text");
  EXPECT_EQ(listing.sizes[0], f.text.size());
  EXPECT_LT(OpenEntry(zip, "text"), 0);
  EXPECT_LT(ReadOnce(zip, 100).rc, 0);
}

}  // namespace
