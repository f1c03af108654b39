#pragma once
// Each zt subcommand lives in its own file and registers itself on the application here.
#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace ztool {
// `zt threads`: a live tour of worker threads, cross-thread calls and the locks.
void addThreadsCommand(CLI::App& app);
int runThreadsTour(int calls);
int runThreadsTourWithDefaults();

// `zt geometry`: rectangle arithmetic, fitting transforms, Bezier curves, geometry in dictionaries.
void addGeometryCommand(CLI::App& app);
int runGeometryTour();

// `zt text`: the format engine, truncation to a width, digests, AES and gzip.
void addTextCommand(CLI::App& app);
int runTextTourWithDefaults();

// `zt format`: lengths, points, pixels, digits, dates, markers and flags.
void addFormatCommand(CLI::App& app);
int runFormatTour();

// `zt operations`: an operation queue ordering jobs by priority and dependency.
void addOperationsCommand(CLI::App& app);
int runOperationsTour();

// `zt collections`: a least-recently-used cache and an array with a key index.
void addCollectionsCommand(CLI::App& app);
int runCollectionsTour();

// `zt files`: paths, unique names, name validation, standard folders and file types.
void addFilesCommand(CLI::App& app);
int runFilesTourWithDefaults();

// `zt watch PATH...`: bursts of changes to files and folders, reported as they start and settle.
void addWatchCommand(CLI::App& app);
int runWatch(const std::vector<std::string>& paths, double settleSeconds);
// `zt sysinfo`: the machine's answers to the system queries, as text or JSON.
void addSysinfoCommand(CLI::App& app);
int runSysinfo(bool json, const std::string& desktopEntry);
int runSysinfoWithDefaults();
// `zt guard --id ID [--retry] -- CMD [ARGS]`: runs a command under the crash guard.
void addGuardCommand(CLI::App& app);

// `zt conflicts FILE [--keep N...] [--delete N...]`: a document's conflict copies, listed and resolved.
void addConflictsCommand(CLI::App& app);
// `zt pair`: pairs this device with another for hand-offs (code comparison, or exported lines).
void addPairCommand(CLI::App& app);
// `zt handoff send FILE` / `zt handoff receive`: a file to a paired device, over mutual TLS.
void addHandoffCommand(CLI::App& app);
// Two processes on loopback hand a file over; the digests must agree.
int runHandoffDemo();

// `zt copy SOURCE DEST`: a background copy under file coordination; prints the path written.
void addCopyCommand(CLI::App& app);
int runCopy(const std::string& source, const std::string& destination);
// `zt date parse TEXT` / `zt date now`: Internet dates read and written.
void addDateCommand(CLI::App& app);
int runDateParse(const std::string& text);
int runDateNow();
// `zt reachability [HOST] [--watch]`: whether a host or the Internet can be reached, and changes.
void addReachabilityCommand(CLI::App& app);
int runReachability(const std::string& host, bool watch);
// `zt fetch URL [-o FILE]`: a download through the library's URL session, with progress.
void addFetchCommand(CLI::App& app);
// `zt demo`: every tour, one after another — the library at work in a minute.
void addDemoCommand(CLI::App& app);
}  // namespace ztool
