// Test helper for crash consistency: a long, deterministic sequence of
// commits of every kind (service collections, sets and distributions;
// setters on the mesh and on FE systems of each kind; map edits; array
// additions; new sub-objects; modal events; damping), and an independent
// reading of a database as a set of facts.
//
// The workload keeps a model of what each commit changed, so the facts of
// a database after c commits are known without reading it. A killed writer
// is consistent when the facts read from its file are exactly those after
// the last reported commit, or after the one that was in flight.
#ifndef DDB_TESTS_RELIABILITY_CRASH_WORKLOAD_H_
#define DDB_TESTS_RELIABILITY_CRASH_WORKLOAD_H_

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

// Facts: "mesh.faces" -> "C3", "C3" -> "size 7", "sys[2].name" -> "s12" ...
typedef std::map<std::string, std::string> Facts;

// An order-independent digest of a set of facts.
uint64_t FactsDigest(const Facts& facts);

// Creates the database `path` and runs `commits` commits on it (the first
// creates the sim), calling `committed(c, facts)` after the c-th returned.
// `keepOpen` is called at the end with everything still open.
void RunWorkload(const std::string& path, int commits,
                 const std::function<void(int c, const Facts& facts)>& committed = nullptr,
                 const std::function<void()>& keepOpen = nullptr);

// The last argument of the workload's createSim from now on
// (QELSimManager::SyncCommits makes every commit durable against power loss).
void SetWorkloadOption(int option);

// The facts of the database `path`, read through the library (read-only, or
// for update, which settles a pending journal first). Messages are kept out
// of the way; a database that does not open gives {"open" -> "failed"}.
Facts ReadFacts(const std::string& path, bool readOnly);

// One line per fact that differs, for failure messages.
std::string FactsDiff(const Facts& expected, const Facts& actual);

#endif  // DDB_TESTS_RELIABILITY_CRASH_WORKLOAD_H_
