// Load benchmark: what InitParsing costs next to the unavoidable work of reading the same
// root entry, on one document, in one run.
//
//   vorla_load_bench [--runs N] DOC.vorla [DOC2.vorla ...]
//
// For each document it measures, each "cold" figure in a fresh process (this program run
// again in a child mode), taken as the median over N processes of the same kind:
//   inflate   libzip inflating the root entry into one new char[] buffer
//   pugixml   pugixml's ordinary parse (load_buffer, which copies) of those bytes
//   load      InitParsing of the document (cold, and warm: repeated in one process)
// plus, for reading the profile, the library's own two halves (entry read, XML parse). It
// prints times, page faults, the peak resident memory each step adds, and the ratios the
// targets are stated in. With several documents it also prints the load-time ratio of the
// last to the first.
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zip.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "KalLightXml.h"
#include "KalSysZipFile.h"
#include "KalVorlaParser.h"

extern char** environ;

namespace {

struct Sample {
  double seconds = 0;
  long faults = 0;
  long peakKb = 0;  // peak resident memory added by the step
  long bytes = 0;
};

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

long CurrentRssKb() {
  FILE* f = std::fopen("/proc/self/statm", "r");
  if (f == nullptr) return 0;
  long pages = 0, resident = 0;
  if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
  std::fclose(f);
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// Time, page faults and added peak memory of one step, from Start() to Stop().
class Meter {
 public:
  void Start() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    _Faults = u.ru_minflt + u.ru_majflt;
    _RssKb = CurrentRssKb();
    _Start = Now();
  }
  void Stop(Sample& s) const {
    s.seconds = Now() - _Start;
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    s.faults = u.ru_minflt + u.ru_majflt - _Faults;
    s.peakKb = u.ru_maxrss - _RssKb;
  }

 private:
  long _Faults = 0;
  long _RssKb = 0;
  double _Start = 0;
};

[[noreturn]] void Die(const char* what) {
  std::fprintf(stderr, "vorla_load_bench: %s\n", what);
  std::exit(2);
}

// The root entry's name, from the manifest (not timed).
std::string RootEntryName(zip_t* z) {
  zip_stat_t st;
  if (zip_stat(z, "Manifest.xml", 0, &st) != 0) Die("no Manifest.xml in the archive");
  std::string text(st.size, '\0');
  zip_file_t* f = zip_fopen(z, "Manifest.xml", 0);
  if (f == nullptr || zip_fread(f, &text[0], st.size) != static_cast<zip_int64_t>(st.size)) Die("cannot read the manifest");
  zip_fclose(f);
  pugi::xml_document d;
  if (!d.load_string(text.c_str())) Die("the manifest is not XML");
  return d.document_element().child_value("Root");
}

// The root entry inflated by libzip into one new char[] buffer.
std::unique_ptr<char[]> Inflate(const char* path, size_t& size, Sample* sample) {
  int error = 0;
  zip_t* z = zip_open(path, ZIP_RDONLY, &error);
  if (z == nullptr) Die("cannot open the archive");
  const std::string root = RootEntryName(z);
  zip_stat_t st;
  if (zip_stat(z, root.c_str(), 0, &st) != 0) Die("no root entry");
  size = st.size;
  Meter meter;
  meter.Start();
  std::unique_ptr<char[]> buffer(new char[size]);
  zip_file_t* f = zip_fopen(z, root.c_str(), 0);
  if (f == nullptr || zip_fread(f, buffer.get(), size) != static_cast<zip_int64_t>(size)) Die("cannot inflate the root entry");
  zip_fclose(f);
  if (sample != nullptr) {
    meter.Stop(*sample);
    sample->bytes = static_cast<long>(size);
  }
  zip_close(z);
  return buffer;
}

Sample RunChild(const char* mode, const char* path) {
  Sample s;
  if (std::strcmp(mode, "inflate") == 0) {
    size_t size = 0;
    Inflate(path, size, &s);
  } else if (std::strcmp(mode, "pugixml") == 0) {
    size_t size = 0;
    std::unique_ptr<char[]> bytes = Inflate(path, size, nullptr);
    Meter meter;
    meter.Start();
    pugi::xml_document d;
    if (!d.load_buffer(bytes.get(), size)) Die("pugixml refuses the root entry");
    meter.Stop(s);
    s.bytes = static_cast<long>(size);
  } else if (std::strcmp(mode, "load") == 0) {
    Meter meter;
    meter.Start();
    KalVorlaParser* parser = new KalVorlaParser();
    HRESULT rc = parser->InitParsing(path);
    meter.Stop(s);
    if (FAILED(rc)) Die("InitParsing failed");
    delete parser;
  } else if (std::strcmp(mode, "entry") == 0 || std::strcmp(mode, "parse") == 0) {
    // The library's own halves: its archive reader, then its XML reader on those bytes.
    const bool parseOnly = mode[0] == 'p';
    int error = 0;
    zip_t* z = zip_open(path, ZIP_RDONLY, &error);
    if (z == nullptr) Die("cannot open the archive");
    const std::string root = RootEntryName(z);
    zip_stat_t st;
    zip_stat(z, root.c_str(), 0, &st);
    zip_close(z);
    KalSysZipFile zip;
    KalUnicodeString archive(path), entry(root.c_str());
    if (zip.OpenZip(&archive, KAL_ZIP_READ) != 0) Die("cannot open the archive");
    const unsigned size = static_cast<unsigned>(st.size);
    Meter meter;
    meter.Start();
    std::unique_ptr<char[]> buffer(new char[size]);
    unsigned read = 0;
    zip.OpenFileInZip(&entry, 1, 0);
    zip.ReadBufferInZip(buffer.get(), size, &read);
    zip.CloseFileInZip();
    if (read != size) Die("short read of the root entry");
    if (!parseOnly) meter.Stop(s);
    if (parseOnly) {
      meter.Start();
      KalLightXmlElementFactory factory;
      std::unique_ptr<KalLightXmlElementItf> element(factory.CreateElement());
      KalLightXmlInputStreamBuffer stream(reinterpret_cast<unsigned char*>(buffer.get()), static_cast<int>(size));
      KalLightXmlParser parser;
      if (parser.Parse(stream, *element) != 1) Die("the root entry does not parse");
      meter.Stop(s);
    }
    s.bytes = size;
  } else {
    Die("unknown mode");
  }
  return s;
}

Sample Spawn(const char* self, const char* mode, const char* path) {
  int fds[2];
  if (pipe(fds) != 0) Die("pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
  posix_spawn_file_actions_addclose(&actions, fds[0]);
  const char* argv[] = {self, "--child", mode, path, nullptr};
  pid_t pid;
  if (posix_spawn(&pid, self, &actions, nullptr, const_cast<char**>(argv), environ) != 0) Die("spawn");
  posix_spawn_file_actions_destroy(&actions);
  close(fds[1]);
  char line[256] = {0};
  ssize_t n = read(fds[0], line, sizeof(line) - 1);
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  Sample s;
  if (n <= 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0 ||
      std::sscanf(line, "%lf %ld %ld %ld", &s.seconds, &s.faults, &s.peakKb, &s.bytes) != 4) {
    Die("a measuring process failed");
  }
  return s;
}

Sample Median(std::vector<Sample> v) {
  std::sort(v.begin(), v.end(), [](const Sample& a, const Sample& b) { return a.seconds < b.seconds; });
  Sample m = v[v.size() / 2];
  long peak = 0;
  for (const Sample& s : v) peak = std::max(peak, s.peakKb);
  m.peakKb = peak;  // the worst peak, not the median one
  return m;
}

void Row(const char* name, const Sample& s, long rootBytes) {
  std::printf("| %-36s | %9.3f | %10ld | %9.1f | %5.2f |\n", name, s.seconds, s.faults, s.peakKb / 1024.0,
              s.peakKb * 1024.0 / static_cast<double>(rootBytes));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && std::strcmp(argv[1], "--child") == 0) {
    Sample s = RunChild(argv[2], argv[3]);
    std::printf("%.6f %ld %ld %ld\n", s.seconds, s.faults, s.peakKb, s.bytes);
    return 0;
  }
  int runs = 5;
  std::vector<const char*> documents;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--runs") == 0 && i + 1 < argc) {
      runs = std::max(1, std::atoi(argv[++i]));
    } else if (std::strcmp(argv[i], "-h") == 0 || std::strcmp(argv[i], "--help") == 0) {
      std::printf("usage: vorla_load_bench [--runs N] DOC.vorla [DOC2.vorla ...]\n");
      return 0;
    } else {
      documents.push_back(argv[i]);
    }
  }
  if (documents.empty()) Die("no document given (--help)");
  const char* self = "/proc/self/exe";
  char selfPath[4096];
  ssize_t len = readlink(self, selfPath, sizeof(selfPath) - 1);
  if (len <= 0) Die("cannot find this program");
  selfPath[len] = '\0';

  std::vector<double> coldLoads, coldAfterPugixml, warmLoads;
  for (const char* doc : documents) {
    // Each kind runs in a row of fresh processes after one unmeasured run, so each starts
    // from the memory its own kind left: what the kernel hands a fresh process depends on
    // what the previous one freed (a run right after pugixml, which frees hundreds of MB of
    // small pages, finds fewer huge pages ready; that case is measured on its own below).
    auto measure = [&](const char* mode) {
      Spawn(selfPath, mode, doc);
      std::vector<Sample> samples;
      for (int r = 0; r < runs; ++r) samples.push_back(Spawn(selfPath, mode, doc));
      return Median(samples);
    };
    Sample mi = measure("inflate"), mp = measure("pugixml"), ml = measure("load"), me = measure("entry"),
           mx = measure("parse");
    std::vector<Sample> afterPugixml;
    for (int r = 0; r < runs; ++r) {
      Spawn(selfPath, "pugixml", doc);
      afterPugixml.push_back(Spawn(selfPath, "load", doc));
    }
    Sample ma = Median(afterPugixml);
    const long rootBytes = mi.bytes;

    std::vector<double> warm;
    {
      KalVorlaParser* first = new KalVorlaParser();  // the first load of this process is not warm
      if (FAILED(first->InitParsing(doc))) Die("InitParsing failed");
      delete first;
      for (int r = 0; r < runs; ++r) {
        double t = Now();
        KalVorlaParser* p = new KalVorlaParser();
        p->InitParsing(doc);
        warm.push_back(Now() - t);
        delete p;
      }
      std::sort(warm.begin(), warm.end());
    }

    std::printf("\n%s: root XML %.1f MB, median of %d fresh processes per cold figure\n\n", doc,
                rootBytes / 1e6, runs);
    std::printf("| %-36s | %9s | %10s | %9s | %5s |\n", "step", "seconds", "faults", "peak MB", "x XML");
    std::printf("|%s|%s|%s|%s|%s|\n", std::string(38, '-').c_str(), std::string(11, '-').c_str(),
                std::string(12, '-').c_str(), std::string(11, '-').c_str(), std::string(7, '-').c_str());
    Row("(1) libzip inflate, cold", mi, rootBytes);
    Row("(2) pugixml load_buffer, cold", mp, rootBytes);
    Row("(3) InitParsing, cold", ml, rootBytes);
    Row("(3) InitParsing, cold after pugixml", ma, rootBytes);
    Sample w;
    w.seconds = warm[warm.size() / 2];
    std::printf("| %-36s | %9.3f | %10s | %9s | %5s |\n", "(3) InitParsing, warm", w.seconds, "", "", "");
    Row("    library entry read, cold", me, rootBytes);
    Row("    library XML parse, cold", mx, rootBytes);
    const double floor = mi.seconds + mp.seconds;
    std::printf("\nInitParsing cold / (inflate + pugixml) cold: %.3f / %.3f = %.2f (target <= 0.75)\n",
                ml.seconds, floor, ml.seconds / floor);
    std::printf("peak memory of the load / root XML bytes: %.1f MB / %.1f MB = %.2f (target <= 4)\n",
                ml.peakKb / 1024.0, rootBytes / 1048576.0, ml.peakKb * 1024.0 / rootBytes);
    std::printf("the same right after a pugixml process: %.3f / %.3f = %.2f\n", ma.seconds, floor,
                ma.seconds / floor);
    coldLoads.push_back(ml.seconds);
    coldAfterPugixml.push_back(ma.seconds);
    warmLoads.push_back(w.seconds);
  }
  if (coldLoads.size() >= 2) {
    std::printf("\nload time, last document / first: cold %.3f / %.3f = %.2f; cold after pugixml "
                "%.3f / %.3f = %.2f; warm %.3f / %.3f = %.2f\n",
                coldLoads.back(), coldLoads.front(), coldLoads.back() / coldLoads.front(),
                coldAfterPugixml.back(), coldAfterPugixml.front(),
                coldAfterPugixml.back() / coldAfterPugixml.front(), warmLoads.back(), warmLoads.front(),
                warmLoads.back() / warmLoads.front());
  }
  return 0;
}
