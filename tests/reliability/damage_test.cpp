// Damaged databases never stop, stall or exhaust the host. Copies of a
// database holding every class are damaged (structurally through the HDF5 C
// API, by truncation, by flipped bytes, by random members records) and each
// is walked completely (tests/reliability/walk.h) in a child process under a
// time and a memory limit. What ended otherwise than cleanly is counted by
// where it happened: our code, or inside HDF5.
//
//   scripts/reliability.sh   the full run (2,000 flips, 500 records) under the
//                            sanitizers, with the table; the test command
//                            runs every structural kind and 200 flips.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <hdf5.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "reliability/crash_workload.h"
#include "reliability/walk.h"
#include "support/scratch_dir.h"

namespace {

const int kSeconds = 20;                 // a walk that takes longer hangs
const rlim_t kMemoryBytes = 1ull << 30;  // a walk may take this much more

bool Full() {
  return getenv("DDB_DAMAGE_FULL") != nullptr;
}

// --- walking a copy in a child ----------------------------------------------

enum Ending { kClean, kCrash, kAbort, kHang, kMemory, kSanitizer, kEndings };
const char* const kEndingNames[kEndings] = {"clean", "crash",  "abort",
                                            "hang",  "memory", "sanitizer"};

struct Verdict {
  Ending ending;
  bool inHdf5;
  std::string report;  // what the child printed about it
};

// In the child: a fault names the library it happened in, then ends the process.
void OnFault(int signal, siginfo_t*, void* context) {
  const ucontext_t* uc = static_cast<const ucontext_t*>(context);
  Dl_info info;
  const char* where = "?";
  void* pc = reinterpret_cast<void*>(uc->uc_mcontext.gregs[REG_RIP]);
  if (dladdr(pc, &info) != 0 && info.dli_fname != nullptr) where = info.dli_fname;
  char line[512];
  int n = snprintf(line, sizeof line, "\n#fault %d in %s\n", signal, where);
  if (n > 0 && write(2, line, static_cast<size_t>(n)) < 0) _exit(125);
  ::signal(signal, SIG_DFL);
  raise(signal);
}

Verdict WalkInChild(const std::string& path) {
  int out[2];
  if (pipe(out) != 0) abort();
  pid_t child = fork();
  if (child == 0) {
    dup2(out[1], 2);
    close(out[0]);
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_sigaction = OnFault;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGSEGV, &action, nullptr);
    sigaction(SIGBUS, &action, nullptr);
    // The limit counts from what the process already maps (the sanitizers
    // reserve terabytes of address space up front).
    long pages = 0;
    if (FILE* statm = fopen("/proc/self/statm", "r")) {
      if (fscanf(statm, "%ld", &pages) != 1) pages = 0;
      fclose(statm);
    }
    rlim_t limit = static_cast<rlim_t>(pages) * static_cast<rlim_t>(getpagesize()) + kMemoryBytes;
    struct rlimit memory = {limit, limit};
    setrlimit(RLIMIT_AS, &memory);
    alarm(kSeconds);
    try {
      WalkDatabase(path);
    } catch (...) {
      static const char kEscaped[] = "\n#exception escaped the library\n";
      if (write(2, kEscaped, sizeof kEscaped - 1) < 0) _exit(125);
      _exit(3);
    }
    _exit(0);
  }
  close(out[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t n; (n = read(out[0], buffer, sizeof buffer)) > 0;) {
    if (text.size() < (1u << 20)) text.append(buffer, static_cast<size_t>(n));
  }
  close(out[0]);
  int status = 0;
  waitpid(child, &status, 0);

  Verdict v{kClean, false, ""};
  size_t report = text.find("ERROR: AddressSanitizer");
  if (report == std::string::npos) report = text.find("runtime error:");
  if (report == std::string::npos) report = text.find("#fault");
  if (report == std::string::npos) report = text.find("#exception");
  if (report != std::string::npos) v.report = text.substr(report, 3000);
  bool sanitizer = text.find("Sanitizer") != std::string::npos ||
                   text.find("runtime error:") != std::string::npos;
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    v.ending = kClean;
  } else if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) {
    v.ending = kHang;
  } else if (text.find("out of memory") != std::string::npos ||
             text.find("mem_Exhausted") != std::string::npos ||
             text.find("bad_alloc") != std::string::npos) {
    v.ending = kMemory;
  } else if (sanitizer) {
    v.ending = kSanitizer;
  } else if (WIFSIGNALED(status) && WTERMSIG(status) != SIGABRT) {
    v.ending = kCrash;
  } else {
    v.ending = kAbort;
  }
  // The first frame of the report outside the sanitizer's own runtime (or
  // the faulting address) tells where.
  std::string first = v.report;
  for (size_t frame = text.find("    #", report == std::string::npos ? 0 : report);
       frame != std::string::npos; frame = text.find("    #", frame + 1)) {
    std::string line = text.substr(frame, text.find('\n', frame) - frame);
    if (line.find("libsanitizer") == std::string::npos &&
        line.find("__interceptor_") == std::string::npos &&
        line.find("libasan") == std::string::npos && line.find("libubsan") == std::string::npos) {
      first = line;
      break;
    }
  }
  v.inHdf5 = first.find("libhdf5") != std::string::npos;
  return v;
}

// --- the tally ----------------------------------------------------------------

struct Tally {
  const char* name;
  int copies = 0;
  int ours[kEndings] = {};
  int hdf5[kEndings] = {};
  std::vector<std::string> kept;  // copies whose walk went wrong, for the record
};

void Count(Tally& tally, const std::string& copy, const std::string& what, const Verdict& v,
           const std::string& keepDirectory) {
  ++tally.copies;
  (v.inHdf5 ? tally.hdf5 : tally.ours)[v.ending]++;
  if (v.ending == kClean) return;
  std::string kept = keepDirectory + "/" + tally.name + "-" + std::to_string(tally.copies) + ".sim";
  WriteWholeFile(kept, ReadWholeFile(copy));
  tally.kept.push_back(kept + " (" + what + "): " + kEndingNames[v.ending] +
                       (v.inHdf5 ? " in HDF5" : " in our code"));
  if (!v.inHdf5) {
    ADD_FAILURE() << tally.name << " " << what << ": " << kEndingNames[v.ending] << "\n"
                  << v.report;
  }
}

void PrintTable(const std::vector<Tally>& tallies) {
  printf("\n%-12s %7s %7s", "damage", "copies", "clean");
  for (int e = kCrash; e < kEndings; ++e) printf(" %10s", kEndingNames[e]);
  printf("   (each: our code / HDF5)\n");
  for (const Tally& t : tallies) {
    printf("%-12s %7d %7d", t.name, t.copies, t.ours[kClean] + t.hdf5[kClean]);
    for (int e = kCrash; e < kEndings; ++e) {
      char cell[24];
      snprintf(cell, sizeof cell, "%d/%d", t.ours[e], t.hdf5[e]);
      printf(" %10s", cell);
    }
    printf("\n");
  }
  for (const Tally& t : tallies) {
    for (const std::string& k : t.kept) printf("  kept %s\n", k.c_str());
  }
}

// --- structural damage through the HDF5 C API ----------------------------------

const char kModel[] = "/sim/discreteModel";
const char kMesh[] = "/sim/discreteModel/mesh";
const char kSystems[] = "/sim/discreteModel/mesh/systems";
const char kPlain[] = "/sim/discreteModel/mesh/systems/0";
const char kModal[] = "/sim/discreteModel/mesh/systems/1";
const char kEvents[] = "/sim/discreteModel/mesh/systems/1/events";
const char kEvent[] = "/sim/discreteModel/mesh/systems/1/events/0";
const char kSub[] = "/sim/discreteModel/mesh/systems/2";
const char kDamping[] = "/sim/discreteModel/mesh/systems/2/damping";
const char kMembers[] = "#simpleTypeMembers";

void DeleteAttribute(hid_t file, const char* object, const char* name) {
  hid_t o = H5Oopen(file, object, H5P_DEFAULT);
  H5Adelete(o, name);
  H5Oclose(o);
}

// Replaces an attribute by one of the given type, shape and bytes.
void PutAttribute(hid_t file, const char* object, const char* name, hid_t type,
                  std::vector<hsize_t> dims, const void* bytes) {
  hid_t o = H5Oopen(file, object, H5P_DEFAULT);
  if (H5Aexists(o, name) > 0) H5Adelete(o, name);
  hid_t space = H5Screate_simple(static_cast<int>(dims.size()), dims.data(), nullptr);
  hid_t a = H5Acreate2(o, name, type, space, H5P_DEFAULT, H5P_DEFAULT);
  H5Awrite(a, type, bytes);
  H5Aclose(a);
  H5Sclose(space);
  H5Oclose(o);
}

// Replaces a dataset of `object` by a contiguous one of the given type and shape.
void PutDataset(hid_t file, const std::string& path, hid_t type, std::vector<hsize_t> dims,
                const void* bytes) {
  H5Ldelete(file, path.c_str(), H5P_DEFAULT);
  hid_t space = H5Screate_simple(static_cast<int>(dims.size()), dims.data(), nullptr);
  hid_t d = H5Dcreate2(file, path.c_str(), type, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
  if (bytes != nullptr) H5Dwrite(d, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes);
  H5Dclose(d);
  H5Sclose(space);
}

std::vector<unsigned char> ReadBytes(hid_t file, const std::string& path) {
  hid_t d = H5Dopen2(file, path.c_str(), H5P_DEFAULT);
  hid_t space = H5Dget_space(d);
  hsize_t n = 0;
  H5Sget_simple_extent_dims(space, &n, nullptr);
  std::vector<unsigned char> bytes(static_cast<size_t>(n));
  if (n > 0) H5Dread(d, H5T_NATIVE_UCHAR, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data());
  H5Sclose(space);
  H5Dclose(d);
  return bytes;
}

typedef std::function<void(hid_t file)> DamageFunction;
struct Kind {
  std::string name;
  DamageFunction damage;
};

void PutInt(std::vector<unsigned char>& bytes, size_t at, int value) {
  for (int i = 0; i < 4; ++i)
    bytes[at + static_cast<size_t>(i)] = static_cast<unsigned char>(value >> (8 * i));
}

std::vector<Kind> StructuralKinds() {
  std::vector<Kind> kinds;
  auto add = [&](const std::string& name, DamageFunction f) { kinds.push_back({name, f}); };
  for (const char* g : {kModel, kMesh, kPlain, kModal, kEvent, kSub, kDamping}) {
    std::string at = std::string(" at ") + g;
    std::string members = std::string(g) + "/" + kMembers;
    add("class missing" + at, [=](hid_t f) { DeleteAttribute(f, g, "class"); });
    add("class of ints" + at, [=](hid_t f) {
      int v[20] = {};
      PutAttribute(f, g, "class", H5T_NATIVE_INT, {20}, v);
    });
    add("class of 40 bytes" + at, [=](hid_t f) {
      char v[40] = "com.trevolo.Mesh";
      PutAttribute(f, g, "class", H5T_NATIVE_UCHAR, {40}, v);
    });
    add("class 2-D" + at, [=](hid_t f) {
      char v[160] = "com.trevolo.Mesh";
      PutAttribute(f, g, "class", H5T_NATIVE_UCHAR, {2, 80}, v);
    });
    for (const char* id :
         {"com.trevolo.Unknown", "", "com.trevolo.ModalEvent", "com.trevolo.Sim"}) {
      add("class '" + std::string(id) + "'" + at, [=](hid_t f) {
        char v[80] = {};
        strncpy(v, id, sizeof v - 1);
        PutAttribute(f, g, "class", H5T_NATIVE_UCHAR, {80}, v);
      });
    }
    add("class unterminated" + at, [=](hid_t f) {
      char v[80];
      memset(v, 'x', sizeof v);
      PutAttribute(f, g, "class", H5T_NATIVE_UCHAR, {80}, v);
    });
    add("members missing" + at, [=](hid_t f) { H5Ldelete(f, members.c_str(), H5P_DEFAULT); });
    add("members of ints" + at, [=](hid_t f) {
      int v[8] = {32, 1, 2, 3, 4, 5, 6, 7};
      PutDataset(f, members, H5T_NATIVE_INT, {8}, v);
    });
    add("members 2-D" + at, [=](hid_t f) {
      unsigned char v[64] = {64};
      PutDataset(f, members, H5T_NATIVE_UCHAR, {8, 8}, v);
    });
    add("members empty" + at,
        [=](hid_t f) { PutDataset(f, members, H5T_NATIVE_UCHAR, {0}, nullptr); });
    add("members truncated" + at, [=](hid_t f) {
      std::vector<unsigned char> b = ReadBytes(f, members);
      b.resize(b.size() / 2);
      PutDataset(f, members, H5T_NATIVE_UCHAR, {b.size()}, b.data());
    });
    add("members header larger" + at, [=](hid_t f) {
      std::vector<unsigned char> b = ReadBytes(f, members);
      if (b.size() >= 4) PutInt(b, 0, static_cast<int>(b.size()) + 1000);
      PutDataset(f, members, H5T_NATIVE_UCHAR, {b.size()}, b.data());
    });
    add("members header smaller" + at, [=](hid_t f) {
      std::vector<unsigned char> b = ReadBytes(f, members);
      if (b.size() >= 4) PutInt(b, 0, static_cast<int>(b.size()) / 3);
      PutDataset(f, members, H5T_NATIVE_UCHAR, {b.size()}, b.data());
    });
    add("members header huge" + at, [=](hid_t f) {
      std::vector<unsigned char> b = ReadBytes(f, members);
      if (b.size() >= 4) PutInt(b, 0, 0x7FFFFFFF);
      PutDataset(f, members, H5T_NATIVE_UCHAR, {b.size()}, b.data());
    });
    add("members extent 2^58" + at, [=](hid_t f) {
      hid_t d = H5Dopen2(f, members.c_str(), H5P_DEFAULT);
      hsize_t huge = hsize_t(1) << 58;
      H5Dset_extent(d, &huge);
      H5Dclose(d);
    });
  }
  for (const char* r : {kSystems, kEvents}) {
    std::string at = std::string(" at ") + r;
    add("#size missing" + at, [=](hid_t f) { DeleteAttribute(f, r, "#size"); });
    for (long long n : {-5LL, 2147483647LL, 1LL << 40, 0LL, 1000LL}) {
      add("#size " + std::to_string(n) + at, [=](hid_t f) {
        PutAttribute(f, r, "#size", H5T_NATIVE_LLONG, {1, 1}, &n);
      });
    }
    add("#size a double" + at, [=](hid_t f) {
      double v = 2.5;
      PutAttribute(f, r, "#size", H5T_NATIVE_DOUBLE, {1, 1}, &v);
    });
    add("#size of two" + at, [=](hid_t f) {
      int v[2] = {1, 1};
      PutAttribute(f, r, "#size", H5T_NATIVE_INT, {2}, v);
    });
    add("element 0 missing" + at,
        [=](hid_t f) { H5Ldelete(f, (std::string(r) + "/0").c_str(), H5P_DEFAULT); });
  }
  for (const char* d : {kModal, kSub}) {
    std::string base = std::string(d) + "/#base";
    add(std::string("#base missing at ") + d,
        [=](hid_t f) { H5Ldelete(f, base.c_str(), H5P_DEFAULT); });
    add(std::string("#base of another class at ") + d, [=](hid_t f) {
      char v[80] = "com.trevolo.ModalEvent";
      PutAttribute(f, base.c_str(), "class", H5T_NATIVE_UCHAR, {80}, v);
    });
  }
  // The service's data.
  add("service format 7", [](hid_t f) {
    int v = 7;
    PutAttribute(f, "/QELSim", "formatVersion", H5T_NATIVE_INT, {1}, &v);
  });
  add("service format missing", [](hid_t f) { DeleteAttribute(f, "/QELSim", "formatVersion"); });
  add("service collections missing",
      [](hid_t f) { H5Ldelete(f, "/QELSim/collections", H5P_DEFAULT); });
  add("service distributions missing",
      [](hid_t f) { H5Ldelete(f, "/QELSim/distributions", H5P_DEFAULT); });
  for (int size : {-1, 0, 2147483647}) {
    add("collection size " + std::to_string(size), [=](hid_t f) {
      PutAttribute(f, "/QELSim/collections/0", "size", H5T_NATIVE_INT, {1}, &size);
    });
  }
  add("collection size missing",
      [](hid_t f) { DeleteAttribute(f, "/QELSim/collections/0", "size"); });
  add("set member outside", [](hid_t f) {
    int v[6] = {5, 4, 3, 2, 1, 99};
    PutDataset(f, "/QELSim/collections/0/0", H5T_NATIVE_INT, {6}, v);
  });
  add("set member negative", [](hid_t f) {
    int v[6] = {5, -4, 3, 2, 1, 0};
    PutDataset(f, "/QELSim/collections/0/0", H5T_NATIVE_INT, {6}, v);
  });
  add("set longer than its collection", [](hid_t f) {
    int v[9] = {};
    PutDataset(f, "/QELSim/collections/0/0", H5T_NATIVE_INT, {9}, v);
  });
  add("set 2-D", [](hid_t f) {
    int v[6] = {};
    PutDataset(f, "/QELSim/collections/0/0", H5T_NATIVE_INT, {2, 3}, v);
  });
  add("distribution shorter than its set", [](hid_t f) {
    int v[2] = {1, 2};
    PutDataset(f, "/QELSim/distributions/0", H5T_NATIVE_INT, {2}, v);
    unsigned set[2] = {0, 0};
    PutAttribute(f, "/QELSim/distributions/0", "dimensionSet", H5T_NATIVE_UINT, {2}, set);
  });
  add("distribution over no set", [](hid_t f) {
    unsigned set[2] = {0, 77};
    PutAttribute(f, "/QELSim/distributions/0", "dimensionSet", H5T_NATIVE_UINT, {2}, set);
  });
  add("distribution set attribute missing",
      [](hid_t f) { DeleteAttribute(f, "/QELSim/distributions/0", "dimensionSet"); });
  return kinds;
}

class Damage : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    s_dir = new ScratchDir();
    std::string pristine = s_dir->File("pristine.sim");
    RunWorkload(
        pristine, 40, [](int, const Facts&) {}, [] {});
    s_pristine = new std::string(ReadWholeFile(pristine));
    s_keep = new std::string(s_dir->Path());
    if (const char* keep = getenv("DDB_DAMAGE_KEEP")) *s_keep = keep;
  }
  static void TearDownTestSuite() {
    delete s_pristine;
    delete s_keep;
    delete s_dir;
  }
  static std::vector<Tally>& Tallies() {
    static std::vector<Tally> tallies;
    return tallies;
  }
  std::string Copy() {
    std::string copy = s_dir->File("copy.sim");
    WriteWholeFile(copy, *s_pristine);
    return copy;
  }

  static ScratchDir* s_dir;
  static std::string* s_pristine;
  static std::string* s_keep;
};
ScratchDir* Damage::s_dir = nullptr;
std::string* Damage::s_pristine = nullptr;
std::string* Damage::s_keep = nullptr;

TEST_F(Damage, EveryKindOfDamageIsWalkedWithoutTroubleInOurCode) {
  std::vector<Tally> tallies(4);
  tallies[0].name = "structural";
  tallies[1].name = "truncation";
  tallies[2].name = "flips";
  tallies[3].name = "records";

  // The walk reads everything there is: every kind of object and value.
  std::string whole = WalkDatabase(s_dir->File("pristine.sim"));
  for (const char* seen :
       {"discreteModel.vectors = collection 0 of 6", "events[1].eventName", "damping.alpha",
        "com.trevolo.GenericSystem", "nodeSets[n", "[101 102"}) {
    EXPECT_NE(whole.find(seen), std::string::npos) << seen;
  }

  std::vector<Kind> kinds = StructuralKinds();
  EXPECT_GE(kinds.size(), 40u);
  for (const Kind& kind : kinds) {
    std::string copy = Copy();
    H5E_BEGIN_TRY {
      hid_t f = H5Fopen(copy.c_str(), H5F_ACC_RDWR, H5P_DEFAULT);
      kind.damage(f);
      H5Fclose(f);
    }
    H5E_END_TRY;
    Count(tallies[0], copy, kind.name, WalkInChild(copy), *s_keep);
  }

  const size_t size = s_pristine->size();
  for (int i = 1; i <= 50; ++i) {
    std::string copy = Copy();
    size_t length = size * static_cast<size_t>(i) / 51;
    WriteWholeFile(copy, s_pristine->substr(0, length));
    Count(tallies[1], copy, "cut to " + std::to_string(length), WalkInChild(copy), *s_keep);
  }

  std::mt19937 random(20261124);
  const int flips = Full() ? 2000 : 200;
  for (int i = 0; i < flips; ++i) {
    std::string bytes = *s_pristine;
    size_t at = random() % size;
    unsigned char bit = static_cast<unsigned char>(1u << (random() % 8));
    bytes[at] = static_cast<char>(static_cast<unsigned char>(bytes[at]) ^ bit);
    std::string copy = s_dir->File("copy.sim");
    WriteWholeFile(copy, bytes);
    Count(tallies[2], copy, "byte " + std::to_string(at) + " ^ " + std::to_string(bit),
          WalkInChild(copy), *s_keep);
  }

  // Random members records of plausible shape, in every object group.
  const char* groups[] = {kModel, kMesh, kPlain, kModal, kEvent, kSub, kDamping};
  const int records = Full() ? 500 : 70;
  for (int i = 0; i < records; ++i) {
    std::string copy = Copy();
    const char* g = groups[i % 7];
    std::vector<unsigned char> b(static_cast<size_t>(8 + random() % 300));
    for (unsigned char& c : b)
      c = static_cast<unsigned char>(random() % 4 == 0 ? random() % 256 : random() % 20);
    PutInt(b, 0, static_cast<int>(b.size()));
    H5E_BEGIN_TRY {
      hid_t f = H5Fopen(copy.c_str(), H5F_ACC_RDWR, H5P_DEFAULT);
      PutDataset(f, std::string(g) + "/" + kMembers, H5T_NATIVE_UCHAR, {b.size()}, b.data());
      H5Fclose(f);
    }
    H5E_END_TRY;
    Count(tallies[3], copy, std::string("record ") + std::to_string(i) + " at " + g,
          WalkInChild(copy), *s_keep);
  }
  PrintTable(tallies);
}

// Inputs that still reach a fault inside HDF5 1.10.8 (see the README's known
// limits): walked as any damaged copy, they must never end badly in our code.
TEST(HdfRegressions, KnownHdf5FaultsNeverEndBadlyInOurCode) {
  Tally tally;
  tally.name = "regressions";
  ScratchDir dir;
  for (const char* name : {"cache-entry-size-1", "cache-entry-size-2", "cache-entry-size-3"}) {
    std::string kept = std::string(DDB_TESTS_DIR) + "/data/hdf5_regressions/" + name + ".sim";
    std::string bytes = ReadWholeFile(kept);
    ASSERT_FALSE(bytes.empty()) << kept << " is missing";
    std::string copy = dir.File("copy.sim");
    WriteWholeFile(copy, bytes);
    Count(tally, copy, name, WalkInChild(copy), dir.Path());
  }
  PrintTable({tally});
}

}  // namespace
