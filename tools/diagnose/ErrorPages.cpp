#include "tools/diagnose/ErrorPages.h"

#include "sim/Chip.h"
#include "sim/Rc.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstddef>

namespace Tool {

namespace {

using Sim::Rc;
using Source = ErrorPage::Source;

// --- Codes of the simulated SDK. Their texts are the chip's own.

ErrorPage code( Rc rc, std::string_view name, std::string_view meaning, std::string_view causes,
                std::string_view remedy ) {
    static Sim::Chip chip;
    return { .name = name,
             .source = Source::sdkCode,
             .meaning = meaning,
             .causes = causes,
             .remedy = remedy,
             .texts = { chip.errmsg( toInt( rc ) ) },
             .code = toInt( rc ) };
}

std::vector<ErrorPage> codePages() {
    constexpr std::string_view constants =
        "The shim's constants are not those of the SDK behind it.";
    constexpr std::string_view compare =
        "Compare the chip with \"cairn-lt tables TABLE\", and name it with --chip.";
    constexpr std::string_view argument =
        "Look at the arguments of the recipe, and at its ranges in Cairn/CairnLtHelper.h.";
    constexpr std::string_view calls =
        "\"cairn-lt check RECORDING\" names the call that breaks the rule.";
    return {
        code( Rc::nullArgument, "null-argument",
              "The call was given no name, or no place for a value.",
              "A table or field name of the shim is null.", "Look at the names of the shim." ),
        code( Rc::unknownUnit, "unknown-unit", "The SDK has no such unit.",
              "It was not attached, or the agent named another one.",
              "Look at the unit that the recipe was given." ),
        code( Rc::unknownTable, "unknown-table", "The unit has no such table.",
              "The chip is of another kind, or its profile leaves the table out.", compare ),
        code( Rc::unknownField, "unknown-field", "The table has no such field on this chip.",
              "The chip is of another kind than the recipe is for.", compare ),
        code( Rc::unknownSymbol, "unknown-symbol", "The field has no symbol of that name.",
              "An argument that is a symbol is misspelt, or the chip has others.", compare ),
        code( Rc::unknownHandle, "unknown-handle", "The handle was never handed out.",
              "The allocate failed, or left the handle invalid, or another variable was used.",
              calls ),
        code( Rc::useAfterFree, "use-after-free", "The entry had been freed before.",
              "Two threads use one entry.", calls ),
        code( Rc::doubleFree, "double-free", "The entry had been freed before.",
              "Two threads use one entry.", calls ),
        code( Rc::tooManyEntries, "too-many-entries", "All handles are in use.",
              "Entries were allocated and never freed.", calls ),
        code( Rc::wrongCommitKind, "wrong-commit-kind",
              "A logical commit of a register or memory, or a physical commit of a logical table.",
              "The chip has a table of that name that is of another kind.", compare ),
        code( Rc::unknownOpcode, "unknown-opcode",
              "The number is no opcode of this kind of commit.", constants,
              "Look at the constants of the shim." ),
        code( Rc::unknownPriority, "unknown-priority", "The number is no priority.", constants,
              "Look at the constants of the shim." ),
        code( Rc::unknownAttribute, "unknown-attribute",
              "The number is no attribute of this kind of table.", constants,
              "Look at the constants of the shim." ),
        code( Rc::valueTooWide, "value-too-wide", "The value has more bits than the field.",
              "An argument of the recipe is out of range for this chip.", argument ),
        code( Rc::valueNotAllowed, "value-not-allowed",
              "The field takes only the values of its symbols.",
              "An argument of the recipe is out of range for this chip.", argument ),
        code( Rc::symbolOnNumber, "symbol-on-number", "The field holds numbers and has no symbols.",
              "The chip is of another kind than the recipe is for.", compare ),
        code( Rc::arrayField, "array-field", "The field is an array, and is written as one.",
              "The chip is of another kind than the recipe is for.", compare ),
        code( Rc::scalarField, "scalar-field", "The field is no array.",
              "The chip is of another kind than the recipe is for.", compare ),
        code( Rc::elementOutOfRange, "element-out-of-range", "The array is shorter on this chip.",
              "An argument of the recipe is out of range for this chip.", argument ),
        code( Rc::indexOutOfRange, "index-out-of-range", "The table has fewer rows on this chip.",
              "An argument of the recipe is out of range for this chip.", argument ),
        code( Rc::instanceOutOfRange, "instance-out-of-range",
              "The table has fewer instances on this chip.",
              "An argument of the recipe, often a pipe, is out of range for this chip.", argument ),
        code( Rc::portOutOfRange, "port-out-of-range", "The table has no copy for that port.",
              "An argument of the recipe is out of range for this chip.", argument ),
        code( Rc::notPerPort, "not-per-port", "The table is not per port.",
              "The chip is of another kind than the recipe is for.", compare ),
        code( Rc::addressMissing, "address-missing",
              "The row needs an index, an instance or a port, and the entry carries none.",
              "The table has more rows, instances or ports on this chip than the recipe expects.",
              compare ),
        code( Rc::keyMissing, "key-missing", "A key field was not added before the commit.",
              "The table has another key on this chip.", compare ),
        code( Rc::entryExists, "entry-exists", "The row is there already.",
              "The agent has been here before, or two agents program the same chip.",
              "Look for an earlier insert with \"cairn-lt trace TRACE --table TABLE\"." ),
        code( Rc::entryNotFound, "entry-not-found", "There is no such row.",
              "It was never inserted, or was deleted since.",
              "Look for its insert with \"cairn-lt trace TRACE --table TABLE\"." ),
        code( Rc::tableFull, "table-full", "The table has no room for another row.",
              "Rows are inserted and never deleted, or the chip is smaller.",
              "Rebuild the chip with --dump, and look at what the table holds." ),
        code( Rc::fieldNotCarried, "field-not-carried",
              "The entry does not hold the field that was read.",
              "No lookup or get came before, or it found no row.", calls ),
        code( Rc::outOfMemory, "out-of-memory", "The host had no memory left.",
              "Something else on the host uses it up, or the agent leaks.",
              "Look at the memory of the host and of the agent." ),
    };
}

// --- The library and its platform

std::vector<ErrorPage> libraryPages() {
    return {
        { .name = "sdk-call-failed",
          .source = Source::assertion,
          .meaning = "An SDK call returned a negative code, which the line before reports.",
          .causes = "The page of the code tells.",
          .remedy = "Give the whole report to \"cairn-lt diagnose\".",
          .texts = { "0" } },
        { .name = "no-profile",
          .source = Source::assertion,
          .meaning = "The chip has no active profile.",
          .causes = "The recipe ran before the profile was set, or with the wrong chip.",
          .remedy = "Set the profile of the chip first.",
          .texts = { "profile" } },
        { .name = "no-chip-attributes",
          .source = Source::assertion,
          .meaning = "The chip's profile has no chip attributes.",
          .causes = "The profile was made without them.",
          .remedy = "Give the profile its chip attributes.",
          .texts = { "chipAttr" } },
        { .name = "invalid-handle",
          .source = Source::assertion,
          .meaning = "The SDK said that the allocate succeeded, and left the handle invalid.",
          .causes =
              "The SDK has no entries left and does not say so, or the shim drops the handle.",
          .remedy = "Look at the shim's allocate, and at entries that are never freed.",
          .texts = { "ent_hdl != BCMLT_INVALID_HDL" } },
        { .name = "not-set",
          .source = Source::assertion,
          .meaning =
              "The register holds another value than the one that the set recipe of the same "
              "kind writes.",
          .causes = "That recipe did not run, or the hardware has changed.",
          .remedy = "Run the set recipe first; look at who else writes the register.",
          .texts = { "val == 1" } },
        { .name = "other-tag-type",
          .source = Source::assertion,
          .meaning = "The register holds another tag type than the one that was asked for.",
          .causes = "The set recipe ran with another tag type, or not at all.",
          .remedy = "Ask for the tag type that was set.",
          .texts = { "val == tagType" } },
        { .name = "lookup-did-not-miss",
          .source = Source::assertion,
          .meaning = "A lookup without its key succeeded, which it must not.",
          .causes = "The SDK is not as the recipe expects it.",
          .remedy = "Look at how the SDK deals with a lookup without a key.",
          .texts = { "rc < 0" } },
        { .name = "iterator-at-end",
          .source = Source::assertion,
          .meaning = "An iterator of the platform was used beyond the end.",
          .causes = "A collection of the shared state changed while it was walked.",
          .remedy = "Hold the activity lock while the shared state is changed.",
          .texts = { "iter_" } },
        { .name = "api-error",
          .source = Source::platform,
          .meaning = "An SDK call returned a negative code; the library stops the process.",
          .causes = "The code, which stands in parentheses, tells.",
          .remedy = "Give the whole report to \"cairn-lt diagnose\".",
          .texts = { "API ERROR:" } },
        { .name = "lock-misuse",
          .source = Source::platform,
          .meaning = "The agent used the activity lock against its rules: recipes are called by a "
                     "thread that holds it, once.",
          .causes = "A recipe was called without the lock, or the lock was taken twice.",
          .remedy = "Find in a core's backtrace who took or released it; hold it with one guard "
                    "around the recipes.",
          .texts = { "taken by a thread that holds it already",
                     "released by a thread that does not hold it; take Kiln::activityLock() before "
                     "calling a recipe",
                     "no memory for its fork handler" } },
        { .name = "trace-setting",
          .source = Source::platform,
          .meaning = "The environment variable KILN_TRACE is not understood and not used.",
          .causes = "A facility or a level is misspelt.",
          .remedy = "Write it as in KILN_TRACE=\"ApiCairn/4,CairnLtHelper/2-9\".",
          .texts = { "KILN_TRACE:" } },
        { .name = "trace-file-not-made",
          .source = Source::platform,
          .meaning =
              "The folder of the always-on trace, or the file of trace lines, cannot be used.",
          .causes = "It does not exist, may not be written, or the disk has no room.",
          .remedy = "Make the folder, make room, or choose a smaller ring.",
          .texts = { "no directory is given for the trace files", "cannot make a trace file in",
                     "cannot reserve", "cannot map a trace file in", "cannot name the trace file",
                     "bytes; it must have", "trace file", "Fleetlog: pthread_key_create",
                     "Fleetlog: pthread_setspecific", "Fleetlog: pthread_atfork" } },
        { .name = "other-recorder",
          .source = Source::platform,
          .meaning = "The recorder and the writer of its files do not belong together.",
          .causes = "Parts of two releases are linked into one program.",
          .remedy = "Build the program against one release.",
          .texts = { "TraceRecorder: its writer knows other sites" } },
        { .name = "trace-lost",
          .source = Source::platform,
          .meaning =
              "Messages of the always-on trace, or recorded operations, are lost from now on.",
          .causes = "The disk is full, or the process has no descriptors left.",
          .remedy = "Make room; what was written before is whole.",
          .texts = { "are not recorded", "overwrite the oldest" } },
    };
}

// --- Input of the tool

std::vector<ErrorPage> commandPages() {
    return {
        { .name = "command-line",
          .meaning = "The command line is not understood.",
          .causes = "An option or its value is missing, misspelt, or in the wrong place.",
          .remedy = "\"cairn-lt VERB --help\" shows each with examples.",
          .texts = { "no verb",
                     "{} is an option of a verb, and no verb is given",
                     "an argument is \"\", which names nothing",
                     "{} needs a value",
                     "{} needs a value, and {} follows",
                     "the argument {} is negative; arguments are not",
                     "one argument too many: \"{}\"",
                     "{}: there is no format \"{}\"",
                     "--trace: {}",
                     "--format: markdown is for --error all",
                     "--format: a page is no stop",
                     "--format: markdown is for all pages",
                     "--bundle is for one report; leave it out, or name one report",
                     "\" does not tell how to compress it",
                     "explain: name one recipe, or give --all",
                     "check: there is no recording",
                     "\" is neither the number of a call nor a time in UTC",
                     "\" to ignore",
                     "\" is not a time in UTC, as in 2026-03-01T07:30:00.25",
                     "\" is not FILE:LINE, FILE or LINE, as in Cairn/CairnLtHelper:31",
                     "--dump: with --format json the tables are part of the document",
                     "--plan is made of two states",
                     "one of {} and {} is a recording, the other one a state",
                     "--from, --state and --dump are about a recording",
                     "--trace is for one report; leave it out, or name one report" } },
        { .name = "unknown-name",
          .meaning = "There is nothing of that name.",
          .causes = "It is misspelt; the nearest name is told.",
          .remedy = "Use a name of the list that the message names.",
          .texts = { "there is no table \"{}\"", "there is no recipe \"{}\"",
                     "there is no rule \"{}\"", "there is no verb \"{}\"",
                     "there is no option \"{}\"", "--operation: there is no operation \"",
                     "--trace: there is no facility \"{}{}\"", "there is no base \"{}\"",
                     "there is no kind \"{}\"", "there is no chip \"{}\"", "there is no unit {}",
                     "--unit: there is no unit {}", "{}: there is no unit {}",
                     "--error: there is no page of \"{}\"{}", "{} has no key \"{}\"" } },
        { .name = "argument-not-understood",
          .meaning = "An argument of a recipe is not of its type, or beyond its range.",
          .causes = "A number that is too large or negative, a text for a number, arguments in "
                    "another order.",
          .remedy = "\"cairn-lt list\" shows the parameters with their types.",
          .texts = { "\"{}\" is not a {}", "{} is too large for a {}", "{} is too large: {}",
                     "\"{}\" is not a bool", "{}: expect: \"{}\" is not a {}",
                     "write true or false", "write 0 to 65535",
                     "{} returns nothing, so nothing can be expected of it",
                     "{} takes {} arguments, not {}", "{} needs an argument \"{}\" ({})",
                     "{} {} given" } },
        { .name = "no-module",
          .meaning = "The recipe works on the first module of the shared state, and there is none.",
          .causes = "The bring-up file describes no module.",
          .remedy = "Describe it as [[modules]].",
          .texts = { "{}: it works on the first module, and there is none" } },
        { .name = "chips-not-clear",
          .meaning = "The options do not tell what the chips are.",
          .causes = "--chip and --model were both given, or two chips have one unit.",
          .remedy = "Write --chip UNIT=FILE for each chip.",
          .texts = { "--chip {}: the unit is too large", "--chip: there are {} chips",
                     "--chip {}: there is no unit after {}",
                     "--chip {}: unit {} is another chip already",
                     "--chip and --model both say what the chips are",
                     "is not possible; units are numbered from 0",
                     "exists already; give the new one another number" } },
        { .name = "fault-not-understood",
          .meaning = "A fault to inject is not understood.",
          .causes = "A part of it is misspelt or there twice, or the parts do not go together.",
          .remedy = "\"cairn-lt run --help\" shows the parts.",
          .texts = { "--inject \"{}\": {}", "it is there twice; leave one out",
                     "a fault is made of op=, table=, field=, unit=, rc=, at=, always and "
                     "handle=invalid",
                     "there is nothing behind the =", "only handle=invalid is possible",
                     "the operations are {}{}", "a number from {} to {} is wanted",
                     "WriteGate: a refusal needs a negative code" } },
        { .name = "fault-never-struck",
          .meaning = "A fault that was to be injected changed nothing.",
          .causes = "No operation matched it, or too few did.",
          .remedy = "\"cairn-lt explain RECIPE\" shows the operations to match.",
          .texts = { "warning: the fault \"{}\" never struck: {}" } },
        { .name = "fault-struck",
          .meaning = "What stopped the recipe, or struck before it, is a fault that was injected.",
          .causes = "--inject.",
          .remedy = "Run it again without.",
          .texts = { "it is a fault that was injected: {}",
                     "a fault that was injected struck before: {}, in step {}: {}" } },
        { .name = "recipe-stopped",
          .meaning = "A recipe stopped cairn-lt, as it would stop an agent.",
          .causes = "An SDK call failed or an assertion did; the lines before say which.",
          .remedy = "Give all lines to \"cairn-lt diagnose\".",
          .texts = { "{}stopped in step {} of {}: {}",
                     "{}: stopped in step {}: {}; {} shows where and why",
                     "last SDK call:", "in the SDK call:", "the chip says:" } },
        { .name = "interrupted",
          .meaning = "A signal ended the steps; the chips were saved as they were.",
          .causes = "Ctrl-C, or a time limit.",
          .remedy = "Go on with the steps that are left, with the same --state.",
          .texts = { "{} before the first of {} steps",
                     "{} is not written: the bring-up was interrupted",
                     "{}{} {} step {} of {}: {}" } },
        { .name = "other-result",
          .meaning = "A recipe returned something else than it must.",
          .causes = "A verify recipe found other rows, or \"expect\" names another result.",
          .remedy = "\"cairn-lt run ... --dump\" shows the rows.",
          .texts = { "{}{} = {}, {} is wanted" } },
        { .name = "entry-never-freed",
          .meaning = "An entry of the SDK is still allocated at the end.",
          .causes = "A recipe that a fault disturbed, or an agent that forgets the free.",
          .remedy = "\"cairn-lt check RECORDING\" names its allocate.",
          .texts = { "warning: an entry of {} on unit {} was never freed" } },
    };
}

std::vector<ErrorPage> filePages() {
    return {
        { .name = "cannot-be-read",
          .meaning = "The system does not let the file or folder be read.",
          .causes = "It is not there, or not readable for this user.",
          .remedy = "Look at the path and its permissions.",
          .texts = { "cannot be read:", "cannot be read: {}", "name the file itself",
                     "was replaced by another file while it was read",
                     "; it is not read further" } },
        { .name = "cannot-be-written",
          .meaning = "The system does not let a file, a folder or standard output be written.",
          .causes = "The disk is full, the folder is missing or not writable, a reader has left.",
          .remedy = "Make room, or name another place. What was there before is as it was.",
          .texts = { "{}: cannot be written: {}", "--trace-file: {}: cannot be written: {}",
                     "--record-to: {}: {}", "--trace-dir: {}: {}",
                     "standard output cannot be written: {}", "{}: cannot be made: {}",
                     "name a folder that can be written to", "is not an empty folder" } },
        { .name = "output-is-input",
          .meaning = "What is to be written is one of the files that are read.",
          .causes = "-o names the input, or a link to it.",
          .remedy = "Name another file with -o. Nothing was written.",
          .texts = { "is {}, which is read" } },
        { .name = "empty-report",
          .meaning = "The report that is to be diagnosed has not one byte.",
          .causes = "The pipe before the tool found nothing, or the log was rotated.",
          .remedy = "Give what the process wrote to standard error, as a file or by a pipe.",
          .texts = { "is empty",
                     "give what the process wrote to standard error, as a file or by a pipe" } },
        { .name = "too-large",
          .meaning = "The file is larger than the tool reads.",
          .causes = "It is not the file that was meant, or a report without end.",
          .remedy = "Name a smaller file, or a part of it.",
          .texts = { "is larger than {} MiB", "is larger than {} MiB unpacked",
                     "is larger than a bundle may be", "is larger than 16 GiB",
                     "{} of {} stops are shown; give a part of the report",
                     "{}: {} of {} stops are taken; divide the report",
                     "{} stops are of more kinds than are told apart" } },
        { .name = "file-in-use",
          .meaning = "Another process uses the state file; the tool waits for it.",
          .causes = "Two commands with the same --state at once.",
          .remedy = "Wait, or give each command a state file of its own.",
          .texts = { "waiting for {}, which another process uses" } },
        { .name = "not-a-state-file",
          .meaning = "The file is no state file that this version reads.",
          .causes = "It is another file, was edited, or is of another version.",
          .remedy = "Name a file that --state has written, or remove it to start afresh.",
          .texts = { "not a state file:", "it is not JSON at byte {}",
                     "it holds a number that is too large", "is no regular file",
                     "name another state file, or remove this one to start afresh" } },
        { .name = "other-chips",
          .meaning = "A state file or a recording is of other chips than those described.",
          .causes = "--chip or --model names another chip than was used then.",
          .remedy = "Leave --chip and --model out, or describe the chips of that time.",
          .texts = { "unit {} is another chip than the one described",
                     "are states of different chips:",
                     "have nothing in common; are they of the same chip?",
                     "call {} allocates an entry of {} on unit {}, {}", "which is not there",
                     "which has no such table", "the hardware changed a row by itself:" } },
        { .name = "not-toml",
          .meaning = "A bring-up file or chip file is no TOML.",
          .causes = "A quote or a bracket is missing, or a key is there twice.",
          .remedy = "Look at the line that the message names.",
          .texts = { "not TOML: {}", "not TOML: there is a \"{}\" already",
                     "nested more than {} deep", "more than {} values" } },
        { .name = "value-of-a-key",
          .meaning = "A key of a bring-up file or chip file has a value that it cannot have.",
          .causes = "A text for a number, a number that is too large, a list of another length.",
          .remedy = "docs/bringup-file.md has the values of each key.",
          .texts = { "{} must be {}, not {}", "{}: \"{}\" is not an unsigned number",
                     "{} needs a key \"{}\"", "{}: {} is negative", "{}: {} is too large",
                     "{} has {} items", "system_port_bits must be 1 to 16", "{} must not be {}",
                     "the chip's three values", "the module record's five values",
                     "the name of a chip must not be empty" } },
        { .name = "not-unique",
          .meaning = "Two items of a bring-up file claim the same name, unit, id or port.",
          .causes = "An item was copied and not changed.",
          .remedy = "Change or remove one of the two lines.",
          .texts = { "there is a chip \"{}\" already (line {})",
                     "unit {} is another chip already (line {})",
                     "there is a module {} already (line {})",
                     "interface {} has a port already (line {})", "{} is a {} already (line {})",
                     "{} has a hardware port already (line {})",
                     "hardware port {} of unit {} belongs to {} already (line {})",
                     "{} has another slot or lane as a recirculation port" } },
        { .name = "too-many-items",
          .meaning = "A file describes more chips or tables than are possible.",
          .causes = "It is not the file that was meant.",
          .remedy = "Describe fewer.",
          .texts = { "more than {} chips", "more than {} tables" } },
        { .name = "step-not-clear",
          .meaning = "A step of a bring-up file does not say one thing to do.",
          .causes = "It has several verbs, or a poke of a logical table.",
          .remedy = "Make each thing a step of its own.",
          .texts = { "a step does one thing", "\"{}\" does not go with \"{}\" in one step",
                     "{} is a logical table" } },
        { .name = "schema",
          .meaning = "A chip file describes a table that no chip can have.",
          .causes = "A name with other letters, a width beyond 64 bits, values that do not fit.",
          .remedy = "Each message ends with what to change.",
          .texts =
              { "a table name is made of letters, digits and underscores; rename it",
                "the name of a register ends in \"r\"; rename it, or change its kind",
                "the name of a memory ends in \"m\"; rename it, or change its kind",
                "it has no rows; give it at least 1",
                "a logical table has neither instances nor ports; leave them out",
                "a logical table without a key field has 1 row, not {}; give it a key field, or 1 "
                "row",
                "it has no instances; give it at least 1",
                "more than {} rows in all instances and ports; make it smaller",
                "it has no fields; give it at least 1",
                "there are two of that name; rename one",
                "its fields have {} elements together, {} are possible; make the arrays shorter",
                "a field name is made of letters, digits and underscores; rename it",
                "names that begin with BCMLT_ belong to the SDK; rename it",
                "width {} is not possible; give it 1 to 64 bits an element",
                "it has no elements; give it a length of at least 1",
                "a {} is addressed by BCMLT_PT_INDEX; make the field data",
                "an array cannot be a key; give it a length of 1",
                "symbol {}: a symbol is made of letters, digits and underscores; rename it",
                "there are two symbols {}; rename one",
                "symbol {} has the value of another one, {}; give it one of its own",
                "symbol {} = {} does not fit {} bits; widen the field",
                "{} {} does not fit {} bits; at most {}",
                "{} {} is none of its symbols; give it the value of one",
                "rows of a physical table always exist; do not preload it",
                "only a table without a key, or with one key field that has symbols, can be "
                "preloaded; do not preload it",
                "it has {} rows and is preloaded with {}; give it that many" } },
        { .name = "not-for-a-report",
          .meaning =
              "\"cairn-lt report\" cannot show what it was given, or an option does not go with "
              "it.",
          .causes = "The file is another one, or is no document that cairn-lt has printed.",
          .remedy = "\"cairn-lt report --help\" tells what can be shown.",
          .texts =
              { "neither a trace, nor a bundle, nor a bring-up file, nor JSON",
                "{} is for {}, and {} is none",
                "give what \"cairn-lt sweep --format json\" or \"cairn-lt diff --format json\" "
                "has printed",
                "it is no JSON", "it is JSON of another kind",
                "it is not as the verb printed it" } },
        { .name = "not-a-bundle",
          .meaning =
              "The compressed file is no bundle, or none that can be trusted. Nothing of it was "
              "used or written.",
          .causes =
              "It is a compressed report, was not copied as a whole, is of another version, or "
              "was made to do harm.",
          .remedy =
              "Copy it again; unpack what is no bundle, as \"zcat FILE | cairn-lt diagnose\" does.",
          .texts = { "is compressed, and no bundle:", "is damaged:",
                     "holds \"{}\", which is no part of a bundle", "has more than {} members",
                     "is a bundle of a version that cannot be read" } },
        { .name = "no-sites",
          .meaning = "The file is no libCairnLtHelper.so with a list of its sites.",
          .causes = "It is another file, is damaged, or is of a release from before the list.",
          .remedy = "Give the library file of the release that wrote the report, or leave "
                    "--library out.",
          .texts = { "its table of sites is damaged", "{} (line {})",
                     "its table of sites has a format that this version cannot read",
                     "is no libCairnLtHelper.so with a table of sites",
                     "the library that this program runs with cannot be found" } },
    };
}

std::vector<ErrorPage> tracePages() {
    return {
        { .name = "not-a-trace-file",
          .meaning = "The file is no trace file, or none that can be read at all.",
          .causes = "It is another file, its writer was stopped at once, or it is of another "
                    "version or machine.",
          .remedy = "Name a *.fleetlog file, or use the reader of the release that wrote it.",
          .texts =
              { "not a trace file: not a regular file",
                "not a trace file: it does not begin with \"FLEETLOG\"",
                "no trace files (*.fleetlog) in this directory",
                "is empty: its writer was stopped before it had made it",
                "begins with zeros: its writer was stopped before it had written the header",
                "ends within its header, after",
                "written on a machine of the other byte order; read it on such a machine",
                "has format version {}; this reader knows versions {} to {}: use the reader that "
                "belongs to the program that wrote it",
                "has a damaged header: header of", "neither a state file nor a recording" } },
        { .name = "trace-damaged",
          .meaning = "A part of a trace file is not as its writer left it; the rest is read.",
          .causes = "The file was copied in part, cut, or written to by something else; a disk "
                    "fault.",
          .remedy = "Copy the file again, after its writer has ended. What was shown is whole.",
          .texts = { "the header is damaged; program, process and times may be wrong",
                     "unknown timestamps", "the file ends here, before its records; it should have",
                     "the file ends here; it should have", "after the end",
                     "the file was cut here, from",
                     "the header of a block is damaged; the block is lost",
                     "missing before this block:",
                     "the records of a block end early; what followed in it is lost",
                     "missing before this block, the oldest that can be read:",
                     "the file ends within a record", "a record has the impossible size",
                     "a descriptor has the impossible size",
                     "a descriptor is damaged; records of its site are shown as bytes",
                     "has no descriptor that can be read; its records are shown as bytes",
                     "a record does not fit its descriptor," } },
        { .name = "trace-overwritten",
          .meaning = "The oldest records of a ring are overwritten, which is its nature.",
          .causes = "The writer wrote more than the ring holds.",
          .remedy = "Give the writer a larger ring, or record everything.",
          .texts = { "overwritten before they could be read:", ": the oldest were overwritten:",
                     ": the beginning is lost",
                     ": the beginning is lost; what the chip held then is not known",
                     "found no room for a description; their records are shown as bytes",
                     "of signal handlers interrupted another message and were dropped",
                     ": its process ended without closing it" } },
        { .name = "not-a-recording",
          .meaning = "The trace holds no SDK operations of the process that is meant.",
          .causes = "It was written without a recorder, or holds several processes.",
          .remedy = "Record with --record-to, or Interpose::TraceRecorder in an agent; choose with "
                    "--process.",
          .texts = { "has no SDK calls of process {}; it has those of: {}",
                     "holds no SDK calls; record them with "
                     "\"--record-to\", or in an agent with "
                     "Interpose::TraceRecorder",
                     "it holds the calls of {} processes: {}",
                     "has no recording of a process that the report says was stopped, so no chip "
                     "can be rebuilt" } },
        { .name = "recording-not-whole",
          .meaning = "Operations of a recording are not there as a whole and are left out.",
          .causes = "The ring lost its beginning, the process ended in a call, or a version or "
                    "limit of the reader is exceeded.",
          .remedy = "Give the chips' state before with --from; record everything.",
          .texts =
              { "a call that this version does not know,",
                "more threads than a recording can have; it and those after it are passed over",
                "more entries than a recording can have; further ones are without table",
                "the thread's calls before this one never returned, or the records after them "
                "are lost; the first of them is passed over",
                "calls that this one made have no record after them; they are passed over",
                "left out: not recorded as a whole",
                "left out: on entries that were allocated before the recording begins",
                "left out: on entries that the chip did not give",
                "not compared: on rows that nobody has written since the recording begins",
                "never returned; whether it took effect is not known, and it is left out",
                "of a guarded call failed for a reason that is none of the chip's; it fails as "
                "it was recorded" } },
        { .name = "rule-not-checked",
          .meaning = "A rule of \"cairn-lt check\" cannot be checked on this recording.",
          .causes = "The recorder was not told what the rule needs, or a chip is not known.",
          .remedy = "Say with --chip what the chips are; give the recorder isLockHeld.",
          .texts =
              { ": lock-held is not checked: the recorder was not told how to ask whether the "
                "activity lock is held",
                "{}: no-key and written-twice are not checked for {}; say with --chip what the "
                "chips are",
                "{}: {} operations on entries that were allocated before the recording begins "
                "are not checked" } },
        { .name = "rule-broken",
          .meaning = "The calls of a recording break a rule.",
          .causes = "An agent that uses the SDK beside the library, or an SDK that is disturbed.",
          .remedy = "\"cairn-lt check --list\" tells each rule; the finding names the calls.",
          .texts =
              { "an entry of {} on unit {} is never freed",
                "the thread goes on after a guarded call that failed",
                "{} on {} is made without the pre-call hook",
                "the activity lock is held during {} on {}",
                "an entry of {} on unit {} is used by another thread than the one that allocated it",
                "an entry of {} on unit {} is filled and freed without a commit",
                "{} on an entry that has been freed", "{} on an entry that is not allocated",
                "an entry of {} on unit {} is committed without {}",
                "a row of {} on unit {} is read from the cache, changed and written back",
                "a row of {} on unit {} is written with the values that it was last written with" } },
        { .name = "export",
          .meaning = "A trace is not exported, or not all of it.",
          .causes =
              "The place to write to is taken or none was named, the filters leave nothing, or "
              "calls have no begin or no end in the trace.",
          .remedy = "Name a new file or directory with -o; give the whole trace.",
          .texts = { "--export ctf writes a directory", "is a directory", "is no directory",
                     "is not empty", "without a begin or an end, and therefore left out: {} SDK {}",
                     "no SDK calls: the traces hold none, or the filters leave none",
                     "interrupted; nothing was exported" } },
        { .name = "plan",
          .meaning = "The operations of a plan do not make one state the other.",
          .causes = "A row whose cache differs from the hardware, which no operation can make.",
          .remedy = "Compare the states again after the plan was performed.",
          .texts = { "the plan fails in {} for {}: {} ({})", "the plan does not lead to",
                     "{} unit {}, {}: no SDK operation makes the cache differ from the hardware; "
                     "with the plan both hold what the hardware does" } },
    };
}

std::vector<ErrorPage> systemPages() {
    return {
        { .name = "no-memory",
          .meaning = "The system has no memory left for the tool.",
          .causes = "A limit on memory, or an input that is larger than was meant.",
          .remedy = "Raise the limit, or give less at once.",
          .texts = { "not enough memory", "the bundle cannot be made: {}", "no memory" } },
        { .name = "no-process",
          .meaning = "The system refuses a process, a pipe or a file in memory.",
          .causes = "A limit on processes or descriptors.",
          .remedy = "Raise the limit (\"ulimit -a\") and run it again: nothing was found wrong.",
          .texts = { "the sweep cannot {}: {}", "make a file in memory", "start a process",
                     "the sweep cannot run a recipe: {}",
                     "the sweep cannot run a recipe: its process was killed", "no pipe: {}",
                     "no descriptor for signals: {}" } },
    };
}

std::vector<ErrorPage> allPages() {
    std::vector<ErrorPage> all;
    for ( const auto & pages : { codePages(), libraryPages(), commandPages(), filePages(),
                                 tracePages(), systemPages() } )
        all.insert( all.end(), pages.begin(), pages.end() );
    return all;
}

// How much of a line a text is, with anything where it has a "{}"; 0 if it does not occur.
std::size_t lengthWithin( std::string_view text, std::string_view line ) {
    std::size_t length = 0;
    std::size_t from = 0;
    while ( !text.empty() ) {
        const std::size_t hole = std::min( text.find( "{}" ), text.size() );
        const std::string_view part = text.substr( 0, hole );
        const std::size_t at = line.find( part, from );
        if ( at == std::string_view::npos )
            return 0;
        from = at + part.size();
        length += part.size();
        text.remove_prefix( std::min( hole + 2, text.size() ) );
    }
    return length;
}

std::string meaningAndCauses( const ErrorPage & page ) {
    return fmt::format( "{} {}", page.meaning, page.causes );
}

} // namespace

std::span<const ErrorPage> errorPages() {
    static const std::vector<ErrorPage> pages = allPages();
    return pages;
}

const ErrorPage * findErrorPage( std::string_view wanted ) {
    int code = 0;
    const auto [end, error] = std::from_chars( wanted.data(), wanted.data() + wanted.size(), code );
    const bool isCode = error == std::errc() && end == wanted.data() + wanted.size();
    const ErrorPage * best = nullptr;
    constexpr std::size_t shortest = 6; // what is shorter is in many lines
    std::size_t longest = shortest - 1;
    for ( const ErrorPage & page : errorPages() ) {
        if ( page.name == wanted || ( isCode && page.code == code ) )
            return &page;
        for ( const std::string_view text : page.texts ) {
            const std::size_t length =
                page.source != Source::assertion ? lengthWithin( text, wanted )
                : wanted.find( fmt::format( "Assertion `{}' failed.", text ) ) ==
                        std::string_view::npos
                    ? 0
                    : text.size() + shortest;
            if ( length > longest ) {
                longest = length;
                best = &page;
            }
        }
    }
    return best;
}

std::string_view toText( Source source ) {
    switch ( source ) {
    case Source::sdkCode:
        return "a code of the simulated SDK";
    case Source::assertion:
        return "an assertion";
    case Source::platform:
        return "a line of the library or its platform";
    case Source::tool:
        return "a message of cairn-lt";
    }
    return {};
}

std::string_view pluralOf( Source source ) {
    switch ( source ) {
    case Source::sdkCode:
        return "Codes of the simulated SDK";
    case Source::assertion:
        return "Assertions";
    case Source::platform:
        return "Lines of the library and its platform";
    case Source::tool:
        return "Messages of cairn-lt";
    }
    return {};
}

std::string meaningOfCode( int rc ) {
    for ( const ErrorPage & page : errorPages() ) {
        if ( page.code == rc )
            return meaningAndCauses( page );
    }
    return {};
}

std::string meaningOfAssertion( std::string_view expression ) {
    for ( const ErrorPage & page : errorPages() ) {
        if ( page.source == Source::assertion && page.texts.front() == expression )
            return meaningAndCauses( page );
    }
    return {};
}

} // namespace Tool
