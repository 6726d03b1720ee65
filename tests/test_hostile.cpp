// Hostile input: archives whose headers lie, bombs, 100,000 entries, entry names
// that look like paths, documents past the memory limit, sibling documents that are no
// documents. Each ends in a pinned code, writes nothing, and the tool says what went wrong.
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>
#include <zlib.h>

#include <chrono>
#include <filesystem>

#include "KalMemory.h"
#include "TestDocuments.h"

namespace kaltest {
namespace {

constexpr uint64_t kGiB = uint64_t{1} << 30;
const std::string kRootXml = Structure(Entity("Reference3D", "id='1'"));

HRESULT Load(const std::string& path) { return KalVorlaParser().InitParsing(path.c_str()); }
double Since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
void Put(std::string& out, uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out += static_cast<char>(i < 8 ? value >> (8 * i) : 0);
}

// Raw deflate; with Z_FULL_FLUSH the piece is byte-aligned and not final, so it can repeat.
std::string Deflate(const std::string& data, int flush = Z_FINISH) {
  std::string out(data.size() / 500 + 1024, '\0');
  z_stream z{};
  deflateInit2(&z, 9, Z_DEFLATED, -15, 9, Z_DEFAULT_STRATEGY);
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  z.next_out = reinterpret_cast<Bytef*>(&out[0]);
  z.avail_in = static_cast<uInt>(data.size()), z.avail_out = static_cast<uInt>(out.size());
  deflate(&z, flush), deflateEnd(&z);
  return out.substr(0, out.size() - z.avail_out);
}

uint32_t Crc(const std::string& data) {
  return crc32(0, reinterpret_cast<const Bytef*>(data.data()), static_cast<uInt>(data.size()));
}

// An entry as both its headers declare it: `data` as stored, the claimed size and CRC (in a
// zip64 extra field when `zip64`).
struct RawEntry {
  std::string name, data;
  uint64_t size;
  uint32_t crc;
  bool deflated = true, zip64 = false;
};

// A zip archive written byte by byte, so that its headers can say what they like.
std::string ZipBytes(const std::vector<RawEntry>& entries) {
  std::string out, central;
  for (const RawEntry& e : entries) {
    std::string extra, common;  // the fields both headers share, in the same order
    if (e.zip64) Put(extra, 0x100001, 4), Put(extra, e.size, 8), Put(extra, e.data.size(), 8);
    Put(common, e.zip64 ? 45 : 20, 2), Put(common, e.deflated ? 8 << 16 : 0, 4);
    Put(common, 0x210000, 4), Put(common, e.crc, 4);  // 1980-01-01
    Put(common, e.zip64 ? 0xFFFFFFFF : e.data.size(), 4);
    Put(common, e.zip64 ? 0xFFFFFFFF : e.size, 4);
    Put(common, e.name.size() | extra.size() << 16, 4);
    Put(central, 0x2D02014B50, 6), central += common;
    Put(central, 0, 10), Put(central, out.size(), 4), central += e.name + extra;
    Put(out, 0x04034B50, 4), out += common + e.name + extra + e.data;
  }
  const size_t offset = out.size(), n = entries.size();
  out += central;
  Put(out, 0x06054B50, 8), Put(out, n | n << 16, 4), Put(out, central.size(), 4);
  Put(out, offset, 6);
  return out;
}

// "exit stderr" of vorla run with `args`.
std::string Vorla(const std::string& args, const TempDir& dir) {
  const ToolRun run = RunVorla(args, dir);
  return std::to_string(run.exit) + " " + run.err;
}

// Bombs whose headers lie, zip64, manifests naming a file on disk or declaring what no machine
// holds, local headers the central directory contradicts, entries that end before their size:
// each load ends in its code in seconds. (Sizes that lie, cut archives: PlatformZip.)
TEST(Hostile, ArchivesThatLieOrExplodeEndInAPinnedCode) {
  TempDir dir;
  const std::string path = dir.File("case.vorla");
  // 8 GiB of zeros in 8 MiB: one flushed 64 MiB piece 128 times, then an empty final block.
  const std::string zeros(size_t{64} << 20, '\0'), piece = Deflate(zeros, Z_FULL_FLUSH);
  std::string bomb;
  uint32_t bombCrc = 0;
  for (int i = 0; i < 128; ++i, bomb += piece)
    bombCrc = crc32_combine(bombCrc, Crc(zeros), static_cast<z_off_t>(zeros.size()));
  bomb += std::string("\x03\x00", 2);
  const std::string xml = kRootXml, packed = Deflate(xml), plain = dir.File("plain.vorla");
  const std::string manifest = ManifestXml("Root.vorla");
  const uint64_t n = xml.size(), huge = uint64_t{1} << 62;
  WriteFile(plain, xml);  // a document on disk, never taken for an entry
  const auto archive = [](const RawEntry& root, const std::string& named = "Root.vorla") {
    const std::string manifest = ManifestXml(named);
    return ZipBytes({{"Manifest.xml", manifest, manifest.size(), Crc(manifest), false}, root});
  };
  const RawEntry good = {"Root.vorla", packed, n, Crc(xml)};
  // The root entry holding `data` (the bomb, or the deflated XML) declared `size`.
  const auto root = [&](const std::string& data, uint64_t size, bool zip64 = false) {
    return archive({"Root.vorla", data, size, data == bomb ? bombCrc : Crc(xml), true, zip64});
  };
  std::string inconsistent = archive(good);
  inconsistent[14] ^= 1;  // the CRC in the manifest's local header alone
  // A bzip2 root entry (read in pieces, not whole) whose headers both say 256 bytes too many.
  zip_t* bz = zip_open(path.c_str(), ZIP_CREATE, nullptr);
  ASSERT_NE(bz, nullptr);
  zip_file_add(bz, "Root.vorla", zip_source_buffer(bz, xml.data(), n, 0), 0);
  zip_file_add(bz, "Manifest.xml", zip_source_buffer(bz, manifest.data(), manifest.size(), 0), 0);
  zip_set_file_compression(bz, 0, ZIP_CM_BZIP2, 0);
  ASSERT_EQ(zip_close(bz), 0);
  std::string cut = ReadFile(path);
  for (size_t at : {size_t{23}, cut.rfind("Root.vorla") - 21}) ++cut[at];
  const struct {
    std::string what, bytes;
    HRESULT code, manifestRead = S_OK;
    std::string filePath = "Root.vorla";
  } cases[] = {{"zip64", root(packed, n, true), S_OK},
               // Past what this machine holds, or else past the 4 GiB any entry may have.
               {"bomb, 8 GiB declared", root(bomb, 8 * kGiB, true),
                8 * kGiB > KalDocumentSizeLimit() ? E_OUTOFMEMORY : E_FAIL},
               {"bomb, 4 KiB declared", root(bomb, 4096), E_FAIL},
               {"bomb, 2^62 declared", root(bomb, huge, true), E_OUTOFMEMORY},
               {"names a file", archive(good, plain), E_FAIL, S_OK, plain},
               {"manifest, 2^62 declared",
                ZipBytes({{"Manifest.xml", manifest, huge, Crc(manifest), false, true}, good}),
                E_FAIL, E_OUTOFMEMORY, ""},
               {"local header contradicted", inconsistent, E_FAIL, S_OK, path},
               {"entry shorter than declared", cut, E_FAIL}};
  for (const auto& c : cases) {
    const auto start = std::chrono::steady_clock::now();
    WriteFile(path, c.bytes);
    KalVorlaParser parser;
    KalUnicodeString file, root;
    EXPECT_EQ(parser.InitParsing(path.c_str()), c.code) << c.what;
    EXPECT_EQ(parser.GetVorlaRootFilePath(path.c_str(), root), c.manifestRead) << c.what;
    parser.GetFilePath(file);
    EXPECT_EQ(Str(file), c.filePath) << c.what;
    EXPECT_LT(Since(start), 5) << c.what;
  }
  EXPECT_EQ(Listing(dir.Path()), (std::set<std::string>{"case.vorla", "plain.vorla"}));
  WriteFile(path, cases[3].bytes);
  EXPECT_EQ(Vorla("tree " + path, dir), "1 vorla: cannot read " + path +
                                            ": there is not enough memory to load it (code "
                                            "0x8007000E)\n");
}

// The manifest and the root come after 100,000 other entries.
TEST(Hostile, AHundredThousandEntriesLoadInSeconds) {
  TempDir dir;
  std::vector<Entry> entries;
  for (int i = 0; i < 100000; ++i) entries.push_back({"p/" + std::to_string(i), "x", false});
  entries.push_back({"Manifest.xml", ManifestXml("Root.vorla")});
  entries.push_back({"Root.vorla", kRootXml});
  WriteArchive(dir.File("many.vorla"), entries);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Load(dir.File("many.vorla")), S_OK);
  EXPECT_LT(Since(start), 30);  // about 3 s here, nearly all in libzip opening the archive
}

// A quarter of the memory the process can have, 0 meaning an unknown figure; past it a plain
// file is refused before it is read (an archive entry: above).
TEST(Hostile, DocumentsPastTheMemoryLimitAreRefusedBeforeTheyAreRead) {
  const uint64_t MiB = 1 << 20,
                 limits[][3] = {
                     {16384, 0, 4096}, {16384, 2048, 512}, {8192, 32768, 2048}, {0, 2048, 512}};
  for (const auto& l : limits) EXPECT_EQ(KalDocumentSizeLimit(l[0] * MiB, l[1] * MiB), l[2] * MiB);
  EXPECT_EQ(KalDocumentSizeLimit(0, 0), UINT64_MAX);
  rlimit saved{};  // this process's figures, its address space limited for one call
  ASSERT_EQ(getrlimit(RLIMIT_AS, &saved), 0);
  const rlimit lowered{3 * kGiB, saved.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_AS, &lowered), 0);
  const uint64_t limited = KalDocumentSizeLimit();
  ASSERT_EQ(setrlimit(RLIMIT_AS, &saved), 0);
  EXPECT_EQ(limited, KalDocumentSizeLimit(uint64_t(sysconf(_SC_PHYS_PAGES) * sysconf(_SC_PAGESIZE)),
                                          3 * kGiB));

  TempDir dir;
  const std::string sparse = dir.File("sparse.vorla");
  WriteFile(sparse, "");
  ASSERT_EQ(truncate(sparse.c_str(), static_cast<off_t>(KalDocumentSizeLimit() + 1)), 0);
  EXPECT_EQ(Load(sparse), E_OUTOFMEMORY);
}

// Over HTTP into KalTemp: entries named like relative and absolute paths are only names of
// the open archive; the local copy alone is made there (over a link in its way) and removed.
TEST(Hostile, EntryNamesThatLookLikePathsStayInsideTheArchive) {
  TempDir dir;
  const std::string temp = dir.File("kaltemp"), victim = dir.File("victim");
  ASSERT_EQ(mkdir(temp.c_str(), 0700), 0);
  WriteFile(victim, "keep");
  ASSERT_EQ(symlink(victim.c_str(), (temp + "/local.vorla").c_str()), 0);
  WriteVorlaArchive(dir.File("doc.zip"), "../../evil.vorla", kRootXml,
                    {{"/tmp/absolute.vorla", kRootXml}});
  HttpServer server;
  server.Set("/doc.vorla", {200, ReadFile(dir.File("doc.zip"))});
  {
    ScopedEnv kalTemp("KalTemp", temp.c_str());
    KalVorlaParser parser;
    KalUnicodeString file;
    EXPECT_EQ(parser.InitParsing(server.Url("/doc.vorla").c_str()), S_OK);
    parser.GetFilePath(file);
    EXPECT_EQ(Str(file), "../../evil.vorla");
    EXPECT_EQ(Load("/tmp/absolute.vorla"), S_OK);  // an entry of the open archive
  }
  EXPECT_EQ(Listing(temp), std::set<std::string>{});
  EXPECT_EQ(Listing(dir.Path()), (std::set<std::string>{"doc.zip", "kaltemp", "victim"}));
  EXPECT_EQ(ReadFile(victim), "keep");
}

// A sibling document named by external URNs that is missing, empty, no XML, a directory or a
// FIFO (which must not block the reader): the URN still leads beside the document, loading
// there fails, its geometry is E_FAIL, and the tool warns and goes on.
TEST(Hostile, ExternalDocumentsThatAreMissingOrNoDocumentsAreReported) {
  TempDir dir;
  const std::string doc = dir.File("doc.xml"), other = dir.File("Other.vorla");
  const std::string rep = "urn:VORLA:Representation:ext:Other.vorla#3";
  WriteFile(doc, Structure(Entity("Reference3D", "id='1'") +
                           Entity("Instance3D", "id='2' name='i'", "1",
                                  "urn:VORLA:Reference:ext:Other.vorla#12") +
                           Entity("InstanceRep", "id='3'", "1", "urn:VORLA:Reference:loc:4") +
                           Entity("ReferenceRep", "id='4' name='Shape'") +
                           Entity("RepFormat", "owner='4' associatedFile='" + rep + "'", "", "",
                                  "<format>TESSELLATED</format><version>1.0</version>")));
  const std::string warning =
      "0 vorla: warning: instance 2 (i): cannot read " + other + " (0x80004005)\n";
  for (const char* kind : {"missing", "empty", "text", "directory", "fifo"}) {
    std::filesystem::remove_all(other);
    if (kind[0] == 'e' || kind[0] == 't') WriteFile(other, kind[0] == 't' ? "not a document" : "");
    if (kind[0] == 'd') std::filesystem::create_directory(other);
    ASSERT_TRUE(kind[0] != 'f' || mkfifo(other.c_str(), 0600) == 0);
    KalVorlaParser parser;
    ASSERT_EQ(parser.InitParsing(doc.c_str()), S_OK);
    KalUnicodeString format;
    EXPECT_EQ(Load(other), E_FAIL) << kind;
    char* bytes = nullptr;
    unsigned int size = 0;
    EXPECT_EQ(parser.GetRepBufferFromUrn(rep.c_str(), &bytes, size, format), E_FAIL) << kind;
    EXPECT_EQ(bytes, nullptr);
  }
  EXPECT_EQ(Vorla("tree " + doc, dir), warning);
  EXPECT_EQ(Vorla("export -q " + doc + " -f -o " + dir.File("o.glb"), dir),
            warning +
                "vorla: warning: 1 representation(s) without geometry that can be "
                "converted:\n  Other.vorla#3 (Shape): cannot be read (0x80004005)\n");
  EXPECT_EQ(Vorla("tree " + other, dir),  // the FIFO as the document itself
            "1 vorla: cannot read " + other +
                ": it is missing, not a Vorla document, or damaged (code 0x80004005)\n");
}

}  // namespace
}  // namespace kaltest
