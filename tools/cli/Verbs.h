#pragma once

#include "tools/run/Output.h"
#include "tools/run/Session.h"

#include <optional>
#include <string>
#include <vector>

// The verbs of the command line. Each takes its options as parsed, prints to standard output, and
// returns the exit code (0 yes, 1 the answer is no); BadInput stands for exit code 2.

namespace Tool {

/// Which chips a verb works on when it is not given a bring-up to run.
struct ChipOptions {
    /// "[UNIT=]SOURCE", where SOURCE is "reference" or a chip file. A chip without a unit gets the
    /// one after that of the chip before it.
    std::vector<std::string> chips;
    /// A bring-up file whose chips, modules and ports are taken and whose steps are not run.
    std::string model;
    /// A state file, whose chips are taken if nothing else says what the chips are.
    std::string state;
};

/// What the options describe: the model of the bring-up file, or else the default model of the
/// chips given, of the chips kept, or of the reference chip as unit 0.
Model modelOf( const ChipOptions & options );

struct ListOptions {
    Format format = Format::text;
};

/// All recipes, by family, with parameters and types.
int list( const ListOptions & options );

struct RunOptions {
    std::string recipe;
    std::vector<std::string> arguments;
    ChipOptions chips;
    SessionOptions session;
};

/// One recipe on simulated chips; prints what it returns.
int run( const RunOptions & options );

struct BringupOptions {
    std::string file;
    SessionOptions session;
};

/// All steps of a bring-up file.
int bringup( const BringupOptions & options );

enum class ExplainFormat { text, markdown, json };

struct ExplainOptions {
    std::string recipe;
    /// Empty: sample arguments.
    std::vector<std::string> arguments;
    /// All recipes, with sample arguments, instead of one.
    bool all = false;
    /// The chips; a state file is only read.
    ChipOptions chips;
    ExplainFormat format = ExplainFormat::text;
};

/// What recipes do, step by step, seen by running them on a scratch chip. 1 if a recipe stops
/// there.
int explain( const ExplainOptions & options );

struct SweepOptions {
    /// Empty: all.
    std::vector<std::string> recipes;
    ChipOptions chips;
    /// Each fault on a line of its own.
    bool verbose = false;
    Format format = Format::text;
};

/// Disturbs each SDK call of each branch of recipes, and says whether what came of it is what the
/// library promises. 1 if something is not.
int sweep( const SweepOptions & options );

enum class TraceFormat { text, brief, json };

struct TraceOptions {
    /// Trace files, or folders that hold some.
    std::vector<std::string> paths;
    /// Filters; what is empty is not asked for. Times are UTC, as "2026-03-01T07:30:00.25".
    std::string recipe;
    std::string site;
    std::string from;
    std::string to;
    std::optional<uint32_t> thread;
    std::string match;
    /// Goes on as long as a file is open for writing.
    bool follow = false;
    /// What the files are, in place of their records.
    bool info = false;
    /// Whether the files are whole, in place of their records.
    bool check = false;
    TraceFormat format = TraceFormat::text;
};

/// The records of trace files, in the order of their times. 1 if a file is damaged.
int trace( const TraceOptions & options );

struct DumpOptions {
    std::string state;
    std::vector<std::string> tables;
    std::optional<int> unit;
    bool all = false;
    Format format = Format::text;
};

/// The tables of a chip that was kept.
int dump( const DumpOptions & options );

} // namespace Tool
