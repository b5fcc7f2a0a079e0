#pragma once

#include "tools/cli/Export.h"
#include "tools/cli/Output.h"
#include "tools/cli/SessionOutput.h"
#include "tools/model/ChipOptions.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The verbs of the command line. Each takes its options as parsed, prints to standard output, and
// returns the exit code (0 yes, 1 the answer is no); InputError and Trouble stand for exit code 2.

namespace Tool {

struct ListOptions {
    Format format = Format::text;
};

/// All recipes, by family, with parameters and types.
int list( const ListOptions & options );

struct TablesOptions {
    std::vector<std::string> tables;
    ChipOptions chips;
    std::optional<int> unit;
    Format format = Format::text;
};

/// The tables of chips; of tables that are named, their fields.
int tables( const TablesOptions & options );

struct RunOptions {
    std::string recipe;
    std::vector<std::string> arguments;
    ChipOptions chips;
    SessionOptions session;
    SessionOutput output;
};

/// One recipe on simulated chips; prints what it returns.
int run( const RunOptions & options );

struct BringupOptions {
    std::string file;
    SessionOptions session;
    SessionOutput output;
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
    /// Filters of recorded SDK calls. If any is there, messages are left out.
    std::string operation;
    std::string table;
    std::optional<int> unit;
    std::optional<int> code;
    /// Goes on as long as a process writes to the files; in a folder, new files are shown, too.
    bool follow = false;
    /// How long, in seconds, a folder is followed when no process writes there any more.
    unsigned wait = 5;
    /// What the files are, in place of their records.
    bool info = false;
    /// What can be known of damage to the files, in place of their records.
    bool check = false;
    /// In place of lines, the records in a format of other programs, in this file or directory; empty:
    /// standard output.
    std::optional<ExportFormat> exportAs;
    std::string output;
    TraceFormat format = TraceFormat::text;
    /// On how many processors lines are made; nothing: on all, up to a few.
    std::optional<unsigned> jobs;
};

/// The records of trace files, in the order of their times. 1 if a file is damaged or cannot be read;
/// what can be read is shown. 2 if what was named cannot be read, and nothing else was named.
int trace( const TraceOptions & options );

enum class DiagnoseFormat { text, json, ndjson, markdown };

struct DiagnoseOptions {
    /// Files with any text, bundles, or folders that hold some; "-", or none at all, is standard
    /// input.
    std::vector<std::string> reports;
    /// Stops are told by what they have in common; so they are if there are several reports.
    bool group = false;
    /// A trace file, or a folder that holds some; empty: none. One report only.
    std::string trace;
    /// The library file of the release that wrote the reports; empty: this program's.
    std::string library;
    ChipOptions chips;
    /// With a recording as the trace: the state file that the chips began with, and the one that
    /// keeps them as they were at the stop; empty: none.
    std::string from;
    std::string state;
    std::optional<Format> dump;
    /// The bundle that is written, .tar.gz or .tar.zst; empty: none.
    std::string bundle;
    /// The page of this error, or "all", in place of a diagnosis.
    std::string error;
    DiagnoseFormat format = DiagnoseFormat::text;
};

/// Where and why the library stopped a process, from what the process wrote. 1 if nothing is found,
/// or not all reports can be read.
int diagnose( const DiagnoseOptions & options );

struct DumpOptions {
    std::string state;
    std::vector<std::string> tables;
    std::optional<int> unit;
    bool all = false;
    Format format = Format::text;
};

/// The tables of a chip that was kept.
int dump( const DumpOptions & options );

struct DiffOptions {
    /// Two state files, or two recordings.
    std::string before;
    std::string after;
    /// Of recordings: how many operations on both sides are shown around those that differ.
    unsigned context = 3;
    /// Of states: the folder of the recording that makes the first state the second; empty: none.
    std::string plan;
    Format format = Format::text;
};

/// What differs between two states, or two recordings. 1 if anything does.
int diff( const DiffOptions & options );

struct ReplayOptions {
    std::string recording;
    std::optional<std::uint32_t> process;
    ChipOptions chips;
    /// The state file that the chips begin with; empty: `state`, if there is such a file.
    std::string from;
    /// Keeps the chips in this file.
    std::string state;
    bool keepGoing = false;
    /// The number of a call, or a time; empty: the end.
    std::string until;
    /// "codes", "values".
    std::vector<std::string> ignore;
    std::optional<Format> dump;
    Format format = Format::text;
};

/// The operations of a recording on simulated chips. 1 if they do not do what they did, or if the
/// recording is damaged.
int replay( const ReplayOptions & options );

struct CheckOptions {
    std::string recording;
    std::optional<std::uint32_t> process;
    /// What the rows of tables are addressed by; the state is not used.
    ChipOptions chips;
    /// Names of rules.
    std::vector<std::string> ignore;
    /// The rules in place of findings.
    bool list = false;
    Format format = Format::text;
};

/// The rules that the calls of a recording break. 1 if there are any, or if it is damaged.
int check( const CheckOptions & options );

struct ReportOptions {
    /// A trace folder or file, a bundle of a diagnosis, a bring-up file to run, or the JSON of a sweep or
    /// a difference.
    std::string input;
    /// The page.
    std::string output;
    /// Of a trace: the chips, and the state file that they begin with; empty: they are new. A bundle
    /// brings its own, which these replace.
    ChipOptions chips;
    std::string from;
    std::optional<std::uint32_t> process;
    /// Of a bring-up: faults as Interpose::parseFault reads them.
    std::vector<std::string> inject;
};

/// A page to look at. 1 if a bring-up does not go as it must, or if a trace is damaged; the page is
/// written all the same.
int report( const ReportOptions & options );

} // namespace Tool
