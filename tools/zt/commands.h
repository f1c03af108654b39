#pragma once
// Each zt subcommand lives in its own file and registers itself on the application here.
#include <CLI/CLI.hpp>

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

// `zt operations`: an operation queue ordering jobs by priority and dependency.
void addOperationsCommand(CLI::App& app);
int runOperationsTour();

// `zt collections`: a least-recently-used cache and an array with a key index.
void addCollectionsCommand(CLI::App& app);
int runCollectionsTour();

// `zt files`: paths, unique names, name validation, standard folders and file types.
void addFilesCommand(CLI::App& app);
int runFilesTourWithDefaults();

// `zt conflicts FILE [--keep N...] [--delete N...]`: a document's conflict copies, listed and resolved.
void addConflictsCommand(CLI::App& app);
// `zt demo`: every tour, one after another — the library at work in a minute.
void addDemoCommand(CLI::App& app);
}  // namespace ztool
