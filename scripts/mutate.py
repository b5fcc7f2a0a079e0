#!/usr/bin/env python3
"""Breaks the library in many small ways, one at a time, and shows whether the tests notice.

    scripts/mutate.py                 every mutant (half an hour on two processors)
    scripts/mutate.py --sample 100    a random hundred, the same ones for the same --seed
    scripts/mutate.py --list          what would be broken, without building

Each mutant is one change to one line: a call dropped or swapped with the next, its hook or its lock moved, its
text, constant or opcode changed, a message or an assertion taken away, a level, a condition or a preset changed.
It is built in a copy of the tree and the tests of the library are run. A mutant that passes them is a survivor:
a test is missing. One that does not compile proves nothing. Exit status 1 if there is either.
"""

import argparse
import concurrent.futures
import os
import pathlib
import queue
import random
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
RECIPES = "Cairn/CairnLtHelper.cpp"
# What is built and run for a mutant of the recipes: recipe_test loads the library, so it is not linked anew.
RECIPE_TARGETS, RECIPE_TESTS = ["cairn_lt_helper"], ["recipe_test"]
# For the pair of library and platform: hosts outside the tree load what is installed. All of it is installed.
PAIR_TARGETS, PAIR_TESTS = ["cairn_lt_helper", "cairn_platform"], ["library.hosting"]
INSTALLED = ["cairn-lt", "cairn_sim", "cairn_interpose", "cairn_recorder", "cairn_trace_reader"]
TESTS = ["guard_test", "chip_model_test", "trace_message_test", "kiln_test", "recipe_test"]

OPCODES = {
    "BCMLT_OPCODE_INSERT": "BCMLT_OPCODE_UPDATE",
    "BCMLT_OPCODE_UPDATE": "BCMLT_OPCODE_INSERT",
    "BCMLT_OPCODE_LOOKUP": "BCMLT_OPCODE_DELETE",
    "BCMLT_OPCODE_DELETE": "BCMLT_OPCODE_LOOKUP",
    "BCMLT_PT_OPCODE_MODIFY": "BCMLT_PT_OPCODE_SET",
    "BCMLT_PT_OPCODE_SET": "BCMLT_PT_OPCODE_MODIFY",
    "BCMLT_PT_OPCODE_GET": "BCMLT_PT_OPCODE_SET",
}

# Changes elsewhere than in the recipes: file, what stands there, what to put in its place. Any run of white space
# stands for any other, so that the formatter may align the code anew.
MACHINERY = [
    ("Cairn/internal/GuardedCall.h", "| enabled ) < 0", "| enabled ) <= 0"),
    ("Cairn/internal/GuardedCall.h", "| enabled ) < 0", "| enabled ) < -1"),
    ("Cairn/internal/GuardedCall.h", "31 - callTraceLevel", "30 - callTraceLevel"),
    ("Cairn/internal/GuardedCall.h", """::Cairn::preCallHook();                                                          \\
        int cairnRc_;""", "int cairnRc_;"),
    ("Cairn/internal/GuardedCall.h", """::Cairn::preCallHook();                                                          \\
        const int""", "const int"),
    ("Cairn/internal/GuardedCall.h", """const ::Kiln::ActivityUnlockAnchor cairnUnlocked_;                           \\
            cairnRc_ =""", "cairnRc_ ="),
    ("Cairn/internal/GuardedCall.h", """const ::Kiln::ActivityUnlockAnchor cairnUnlocked_;                 \\
            ( rc ) =""", "( rc ) ="),
    ("Cairn/internal/GuardedCall.h", """const ::Kiln::ActivityUnlockAnchor cairnUnlocked_;                 \\
            static_cast<void>""", "static_cast<void>"),
    ("Cairn/internal/GuardedCall.h", """if ( ::Cairn::isEnabled( cairnApi_, ::Cairn::callTraceLevel ) ) [[unlikely]] \\
            ::Cairn::traceCall(""",
     """if ( ( rc ) >= 0 && ::Cairn::isEnabled( cairnApi_, ::Cairn::callTraceLevel ) ) \\
            ::Cairn::traceCall("""),
    ("Cairn/internal/GuardedCall.h", """if ( ::Cairn::isEnabled( cairnApi_, ::Cairn::callTraceLevel ) ) [[unlikely]] \\
            ::Cairn::traceCall(""",
     """if ( ::Cairn::isEnabled( cairnApi_, 3 ) ) \\
            ::Cairn::traceCall("""),
    ("Cairn/internal/GuardedCall.h", """if ( ::Cairn::isEnabled( cairnApi_, ::Cairn::callTraceLevel ) ) [[unlikely]] \\
            ::Cairn::traceIgnoredCall(""",
     """if ( ::Cairn::isEnabled( cairnApi_, 3 ) ) \\
            ::Cairn::traceIgnoredCall("""),
    ("Cairn/internal/GuardedCall.cpp", "if ( rc < 0 )", "if ( rc <= 0 )"),
    ("Cairn/internal/GuardedCall.cpp", "if ( rc < 0 )", "if ( rc < -1 )"),
    ("Cairn/internal/GuardedCall.cpp", "{ Shim::sdk_->preCallHook(); }", "{}"),
    ("Cairn/internal/GuardedCall.cpp", '" API ERROR:"', '" API ERROR: "'),
    ("Cairn/internal/GuardedCall.cpp", "writeReport( report );", ""),
    ("Cairn/internal/GuardedCall.cpp", """writeReport( report );
    Shim::sdk_->failureHook();""", """Shim::sdk_->failureHook();
    writeReport( report );"""),
    ("Cairn/internal/GuardedCall.cpp", "errorText != nullptr ? errorText", "true ? errorText"),
    ("Cairn/internal/GuardedCall.cpp", "blockWriteSignals(); writeReport( report );", "writeReport( report );"),
    ("Cairn/internal/GuardedCall.cpp", "blockWriteSignals(); __assert_fail", "__assert_fail"),
    ("Cairn/internal/GuardedCall.cpp", "sigaddset( &signals, SIGXFSZ );", ""),
    ("Cairn/internal/GuardedCall.cpp", "pthread_sigmask( SIG_BLOCK, &signals, nullptr );",
     "signal( SIGPIPE, SIG_IGN ); signal( SIGXFSZ, SIG_IGN );"),
    ("Cairn/internal/GuardedCall.cpp", "std::cerr.exceptions( std::ios_base::goodbit );", ""),
    ("Cairn/internal/GuardedCall.cpp", "std::cerr.clear();", ""),
    ("Cairn/internal/GuardedCall.cpp",
     "std::cerr.write( report.data(), static_cast<std::streamsize>( report.size() ) ) .flush()",
     "( std::cerr << report << std::flush )"),
    ("Cairn/internal/GuardedCall.cpp",
     "std::cerr.write( report.data(), static_cast<std::streamsize>( report.size() ) ) .flush()",
     "std::cerr.write( report.data(), static_cast<std::streamsize>( report.size() - 1 ) ).put( 10 ).flush()"),
    ("Cairn/internal/GuardedCall.cpp", "} catch ( ... ) {", "} catch ( const char * ) {"),
    ("Cairn/internal/GuardedCall.cpp", "::write( STDERR_FILENO, report.data(), report.size() )", "0"),
    ("Cairn/internal/GuardedCall.cpp", "Shim::sdk_->failureHook();", ""),
    ("Cairn/internal/GuardedCall.cpp", 'stopByAssertion( "0"', 'stopByAssertion( "rc"'),
    ("Cairn/internal/GuardedCall.cpp", '" (rc:"', '" (rc: "'),
    ("Cairn/internal/GuardedCall.cpp", '" no rc check"', '" no check"'),
    ("Cairn/internal/GuardedCall.cpp", "std::to_string( line )", "std::to_string( line + 1 )"),
    ("Cairn/internal/GuardedCall.cpp", "sourceFile, line,", "sourceFile, line + 1,"),
    ("Cairn/internal/GuardedCall.cpp", "CairnPlatform::level( callTraceLevel )", "CairnPlatform::level( callTraceLevel - 1 )"),
    ("Cairn/internal/GuardedCall.cpp", "recipe.function );", "recipe.pretty );"),
    ("Cairn/internal/GuardedCall.cpp", "__assert_fail( expression, sourceFile,", '__assert_fail( expression, "",'),
    ("Cairn/internal/GuardedCall.cpp", "recipe.pretty );", "recipe.function );"),
    ("Cairn/internal/TraceHandles.cpp", '"ApiCairn", false', '"ApiCairn", true'),
    ("Cairn/internal/TraceHandles.cpp", '"CairnLtHelper", false', '"CairnLtHelper", true'),
    ("Cairn/internal/TraceHandles.cpp", "everyLevel{ ~uint32_t( 0 ) }", "everyLevel{ uint32_t( 0 ) }"),
    ("Cairn/internal/SdkNames.h", "static_cast<int>( unit )", "static_cast<int>( unit + 1 )"),
    ("Cairn/internal/SdkNames.h", "bcmlt_entry_commit( handle, askOpcode, priorityValue )",
     "bcmlt_entry_commit( handle, priorityValue, askOpcode )"),
    ("Cairn/internal/SdkNames.h", "bcmlt_pt_entry_commit( handle, askOpcode, priorityValue )",
     "bcmlt_pt_entry_commit( handle, priorityValue, askOpcode )"),
    ("Cairn/internal/SdkNames.h", """const typename SdkConstant<priority>::Value priorityValue = askPriority;
    return Shim::sdk_->bcmlt_entry_commit( handle, askOpcode, priorityValue );""",
     """const uint32_t opcodeValue = askOpcode;
    return Shim::sdk_->bcmlt_entry_commit( handle, opcodeValue, askPriority );"""),
    ("Cairn/internal/SdkNames.h", """const typename SdkConstant<priority>::Value priorityValue = askPriority;
    return Shim::sdk_->bcmlt_pt_entry_commit( handle, askOpcode, priorityValue );""",
     """const uint32_t opcodeValue = askOpcode;
    return Shim::sdk_->bcmlt_pt_entry_commit( handle, opcodeValue, askPriority );"""),
    ("Cairn/internal/Recipe.h",
     "const ::CairnPlatform::LevelMask & cairnApi_ = \\ ::CairnPlatform::levelMask( ::Cairn::apiCairn )",
     "const ::CairnPlatform::LevelMask cairnApi_{ \\\n"
     "::CairnPlatform::read( ::CairnPlatform::levelMask( ::Cairn::apiCairn ) ) }"),
    ("Cairn/internal/TraceMessage.h", "if ( file != nullptr ) {", "if ( true ) {"),
    ("Cairn/internal/TraceMessage.h", "index - 1 < CairnPlatform::highestSite( file ) && ", ""),
    ("Cairn/internal/TraceMessage.h", "index - 1 < CairnPlatform::highestSite", "index <= CairnPlatform::highestSite"),
    ("platform/Fleetlog/MsgDesc.cpp", "if ( !file_->isRegistered( header_.id ) ) {", "if ( true ) {"),
    ("platform/Fleetlog/TraceFile.cpp", "registeredBeyond_.clear();", ""),
    ("Cairn/internal/TraceMessage.h", "file == nullptr || !msgIdInitialized( *file, id ) ||", "file == nullptr || id == 0 ||"),
    ("Cairn/internal/TraceMessage.h", "if ( !msgIdInitialized( *file, id ) )", "if ( id == 0 )"),
    ("Cairn/internal/TraceMessage.h", "put2( record, value )", "put4( record, value )"),
    ("Cairn/internal/TraceMessage.h", """CairnPlatform::endMsg( record );
    }
    if ( messagesMayBeEnabled""", """}
    if ( messagesMayBeEnabled"""),
    ("Cairn/internal/TraceMessage.h", """}
    writeMessageText( site, values... );""", "}"),
    ("Cairn/internal/TraceMessage.h", "if ( messagesMayBeEnabled( messageLevel ) ) [[unlikely]]",
     "if ( messagesMayBeEnabled( messageLevel + 1 ) )"),
    ("Cairn/internal/TraceMessage.cpp", "CairnPlatform::rememberFile( handle, *file );", ""),
    ("platform/Fleetlog/TraceHandle.h", "if ( knownFile.generation != generation_ )",
     "if ( knownFile.generation == 0 )"),
    ("platform/Fleetlog/TraceHandle.cpp", "knownFile.set( 0, nullptr );", ""),
    ("platform/Fleetlog/internal/Registry.cpp", "each.hasThread && each.thread == std::this_thread::get_id()",
     "each.hasThread"),
    ("platform/Fleetlog/internal/Registry.cpp", "left->thread = std::this_thread::get_id();", ""),
    ("Cairn/internal/TraceMessage.h", "if ( !messagesEnabled( messageLevel ) )",
     "if ( !messagesEnabled( messageLevel - 1 ) )"),
    ("Cairn/internal/TraceHandles.h", "&& isEnabled( CairnPlatform::levelMask( _defaultTraceHandle() ), level )", ""),
    ("Cairn/internal/TraceMessage.cpp", "CairnPlatform::isMultiThread( handle )", "!CairnPlatform::isMultiThread( handle )"),
    ("Cairn/internal/TraceMessage.h", "if ( handle != nullptr ) {", "if ( true ) {"),
    ("Cairn/internal/TraceMessage.cpp", "sourceFile, site.line );", "sourceFile, site.line + 1 );"),
    ("Cairn/internal/TraceMessage.cpp", "descriptor << site.recipe->function;", ""),
    ("Cairn/internal/TraceMessage.cpp", "descriptor.finish();", ""),
    ("Cairn/internal/TraceMessage.cpp", "Twinlog::twinlogFixed_ << site.recipe->function;", ""),
    ("Cairn/internal/TraceMessage.cpp", "if ( !messagesEnabled( messageLevel ) )", "if ( false )"),
    ("Cairn/internal/TraceMessage.cpp", "CairnPlatform::level( messageLevel )",
     "CairnPlatform::level( messageLevel - 1 )"),
    ("platform/Kiln/TraceHelper.cpp", "byte < 0x20 ||", "byte < 0x1F ||"),
    ("platform/Kiln/TraceHelper.cpp", "|| byte == 0x7F", ""),
    ("platform/Kiln/TraceHelper.cpp", "if ( byte == 0xC2 &&", "if ( false &&"),
    ("platform/Kiln/TraceHelper.cpp", "& 0xE0 ) == 0x80", "& 0xC0 ) == 0x80"),
    ("platform/Kiln/TraceHelper.cpp", "digits[byte >> 4]", "digits[byte & 0xF]"),
    ("platform/Kiln/TraceHelper.cpp", "|| !put( line ) ) ++lost_;", ") put( line );"),
    ("platform/Kiln/TraceHelper.cpp", "lost_ = 0; } if", "; } if"),
    ("platform/Kiln/TraceHelper.cpp", "if ( isInLine_ )", "if ( false )"),
    ("platform/Kiln/TraceHelper.cpp", "isInLine_ = text[taken - 1] != '\\n';", ""),
    ("platform/CairnPlatform/internal/Write.h", "signals.drop();", ""),
    ("platform/CairnPlatform/internal/Write.h", "sigdelset( &ours_, signal );", ";"),
    ("platform/CairnPlatform/internal/Write.h", "pthread_sigmask( SIG_BLOCK, &ours_, &before_ );", "pthread_sigmask( SIG_BLOCK, nullptr, &before_ );"),
    ("platform/CairnPlatform/internal/Write.h", "sigaddset( &ours_, SIGXFSZ );", ""),
    ("platform/CairnPlatform/internal/Write.h", "{ pthread_sigmask( SIG_SETMASK, &before_, nullptr ); }", "{}"),
    ("platform/ChipModel/ChipModel.cpp", "features_[feature->kilnType()]", "features_[typeid( *feature )]"),
    ("CairnCommon/CairnCommonUtil.h", "found_ ? dynamic_cast<T *>( &*found_ )", "found_ ? static_cast<T *>( &*found_ )"),
    ("CairnCommon/CairnCommonUtil.h", "maxPorts > 255", "maxPorts > 256"),
    ("CairnCommon/CairnCommonUtil.h", "<< 8 |", "<< 7 |"),
    ("CairnCommon/CairnCommonUtil.h", "port == 0 ? maxPorts", "port == 1 ? maxPorts"),
    ("CairnCommon/CairnCommonUtil.h", "port & 0xFFu", "port & 0x7Fu"),
    ("CairnCommon/CairnCommonUtil.h", '<< "chipInfo NULL"', '<< "chipInfo null"'),
    ("CairnCommon/CairnCommonUtil.h", '<< "invalid"', '<< " invalid"'),
    ("CairnCommon/CairnCommonUtil.h", "noChipLine = 213", "noChipLine = 214"),
    ("CairnCommon/CairnCommonUtil.h", "maxPortsLine = 225", "maxPortsLine = 226"),
]

# What keeps a library from a platform that was built from other headers.
PAIR = [
    ("platform/CairnPlatform/Adapter.h", "libraryAndPlatformMustBeBuiltFromTheSameHeaders<Layout::sum()>;", "nullptr;"),
    ("platform/CairnPlatform/Layout.h", "add( add( sum, sizeof( Types ) ), alignof( Types ) )",
     "add( sum, alignof( Types ) )"),
    ("platform/CairnPlatform/Layout.h", "sum = add( sum, offset );", "static_cast<void>( offset );"),
    ("platform/CairnPlatform/Layout.h", "return ( sum ^ number ) * 0x100000001b3;", "return sum + 0 * number;"),
    ("Cairn/internal/TraceHandles.cpp", "[[gnu::used]] void ( *const counterpart )() noexcept = CairnPlatform::counterpart;",
     ""),
]


class Mutant:
    def __init__(self, file, number, kind, text, targets=tuple(TESTS), tests=tuple(TESTS)):
        self.file = file
        self.number = number  # of the line, from 0
        self.kind = kind
        self.text = text  # of the whole file
        self.targets = targets  # to be built
        self.tests = tests  # to be run

    def __str__(self):
        return f"{self.file}:{self.number + 1}: {self.kind}"


def recipe_mutants(lines):
    """Yields (line number, kind, replacement lines for the lines from there on, how many they replace)."""
    statement = re.compile(r"^\s*CAIRN_(\w+)\( (.*) \);$")
    for i, line in enumerate(lines):
        indent = line[: len(line) - len(line.lstrip())]
        found = statement.match(line)
        macro = found.group(1) if found else ""
        if found and macro != "RECIPE":
            yield i, "drop", [indent + ";"], 1
            after = statement.match(lines[i + 1]) if i + 1 < len(lines) else None
            if after and lines[i + 1].startswith(indent + "CAIRN_") and after.group(1) != "RECIPE":
                yield i, "swap with the next", [lines[i + 1], line], 2
        if macro == "CALL":
            call = found.group(2)
            unchecked = f"{{ int cairnDropped_; CAIRN_CALL_UNCHECKED( cairnDropped_, {call} ); }}"
            # An else that follows must still belong to its if.
            yield i, "without hook and check", [f"{indent}do {unchecked} while ( false );"], 1
            yield i, "with the lock kept", [line.replace("CAIRN_CALL(", "CAIRN_CALL_LOCK_KEPT(")], 1
        if macro == "CALL_LOCK_KEPT":
            yield i, "with the lock released", [line.replace("CAIRN_CALL_LOCK_KEPT(", "CAIRN_CALL(")], 1
        if macro == "CALL_UNCHECKED":
            call = found.group(2).split(", ", 1)[1]
            yield i, "checked", [f"{indent}rc = 0; CAIRN_CALL( {call} );"], 1
        if macro == "CALL_IGNORED":
            yield i, "checked", [f"{indent}CAIRN_CALL( {found.group(2)} );"], 1
        if macro.startswith("CALL"):
            for opcode, other in OPCODES.items():
                if opcode in line:
                    yield i, f"{opcode} to {other}", [line.replace(opcode, other)], 1
        if macro.startswith("CALL") or macro in ("MESSAGE", "LINE"):
            for literal in re.finditer(r'"([^"]+)"', line):
                if macro == "MESSAGE" and re.fullmatch(r"[isbp]+", literal.group(1)):
                    continue  # the letters: a wrong one does not compile
                if literal.group(1) == "%s":
                    continue  # likewise
                text = literal.group(1)
                changed = text[:-1] + ("X" if text[-1] != "X" else "Y")
                if "%s" in text:
                    changed = text.replace("l2If", "l2IF")
                yield i, f'"{text}" to "{changed}"', [line[: literal.start(1)] + changed + line[literal.end(1) :]], 1
            for number in re.finditer(r"(?<=[ ,])(0x[0-9a-f]+|[0-9]+)(?= \)|, | : )", line):
                value = int(number.group(1), 0) ^ 1
                yield i, f"{number.group(1)} to {value}", [line[: number.start()] + str(value) + line[number.end() :]], 1
        if macro == "LINE":
            level = int(re.search(r"CAIRN_LINE\( (\d)", line).group(1))
            yield i, f"level {level} to {level - 1}", [line.replace(f"( {level},", f"( {level - 1},", 1)], 1
        if macro == "MESSAGE":
            head, _, arguments = line.rpartition(" ), ")
            names = arguments.removesuffix(" );").split(", ")
            if len(names) > 1:
                rotated = names[1:] + names[:1]
                letters = re.search(r'"([isbp]+)"', line).group(1)
                rotated_line = f"{head} ), {', '.join(rotated)} );".replace(letters, letters[1:] + letters[:1], 1)
                yield i, "arguments in another order", [rotated_line], 1
        for old, new in [
            ("rc < 0 )", "rc <= 0 )"),
            ("rc >= 0", "rc > 0"),
            ("rc != 0", "rc < 0"),
            ("== l2If", "!= l2If"),
            ("&& isTrunk", ""),
            ("val == portOrLagId &&", ""),
            ("bool isTrunk = val != 0", "bool isTrunk = val == 1"),
            ("return val != 0", "return val == 1"),
            ("= !present", "= present"),
            ("op && present", "op"),
            ("if ( op )", "if ( !op )"),
            ("if ( lag )", "if ( !lag )"),
            ("continue;", "return;"),
            ("return;", ";"),
            ("+ 63 ) >> 6", "+ 64 ) >> 6"),
            ("+ 63 ) >> 6", "+ 63 ) >> 5"),
            ("{ 0, 1, 2 }", "{ 0, 2, 1 }"),
            ("{ 0, 1, 2 }", "{ 0, 1 }"),
            ("enable ? 1 : 0", "enable ? 0 : 1"),
            ("if ( tagType != 0 )", "if ( tagType != 1 )"),
            ("if ( disableThdoInfo )", "if ( !disableThdoInfo )"),
            ("isBlocked(", "!isBlocked("),
            ("isUnblocked(", "!isUnblocked("),
            ("isUnblocked(", "!isBlocked("),
            ("CairnPlatform::hasRangeTableIndex(", "!CairnPlatform::hasRangeTableIndex("),
            ("static_cast<uint16_t>( val )", "static_cast<uint8_t>( val )"),
            ("static_cast<uint16_t>( modId )", "static_cast<uint8_t>( modId )"),
            ("static_cast<uint16_t>( port )", "static_cast<uint8_t>( port )"),
            ("= CairnPlatform::unit( port )", "= CairnPlatform::portId( port )"),
            ("? *found : CairnTypes::CairnPort()", "? *found : *found"),
            ("? *hwPort : Hardware::Cairn::TridentPortId()", "? *hwPort : *hwPort"),
        ]:
            # The stop of an assertion is asked for by name; what is asserted is text.
            if old in line and not macro.startswith("CALL"):
                yield i, f"{old} to {new}", [line.replace(old, new, 1)], 1
        if line.endswith("= BCMLT_INVALID_HDL;"):
            yield i, "handle not preset", [line.replace("BCMLT_INVALID_HDL", "0")], 1
        constant = re.match(r"constexpr uint64_t (\w+) = (\d+);", line)
        if constant:
            value = int(constant.group(2)) ^ 1
            yield i, f"{constant.group(2)} to {value}", [line.replace(f"= {constant.group(2)}", f"= {value}")], 1
        stage = re.match(r".*CairnPlatform::stage\( (\d+) \);", line)
        if stage:
            yield i, "another stage", [line.replace(stage.group(1), str(int(stage.group(1)) + 1))], 1
        fixed = re.match(r"    const uint64_t val = (\d+);", line)
        if fixed:
            yield i, "another value", [line.replace(f"= {fixed.group(1)};", "= 5;")], 1
        memory = re.match(r'        "(\w+m)",', line)
        if memory:
            yield i, "another memory", [line.replace("_HASH", "_HUSH")], 1


def mutants():
    lines = (ROOT / RECIPES).read_text().split("\n")
    made = []
    for number, kind, replacement, replaced in recipe_mutants(lines):
        text = "\n".join(lines[:number] + replacement + lines[number + replaced :])
        made.append(Mutant(RECIPES, number, kind, text, RECIPE_TARGETS, RECIPE_TESTS))
    made += [mutant_of(*each) for each in MACHINERY]
    made += [mutant_of(*each, PAIR_TARGETS, PAIR_TESTS) for each in PAIR]
    return made


def mutant_of(file, old, new, targets=tuple(TESTS), tests=tuple(TESTS)):
    text = (ROOT / file).read_text()
    found = re.search(r"\s+".join(map(re.escape, old.split())), text)
    if not found:
        sys.exit(f"mutate.py: {file} does not hold {old!r} any more; bring the list up to date")
    number = text.count("\n", 0, found.start())
    kind = " ".join(f"{old} to {new or 'nothing'}".replace("\\\n", "").split())
    return Mutant(file, number, kind, text[: found.start()] + new + text[found.end() :], targets, tests)


class Workshop:
    """A copy of the tree with a build of its own."""

    def __init__(self, folder):
        self.tree = folder / "tree"
        self.build = folder / "build"
        shutil.copytree(ROOT, self.tree, ignore=shutil.ignore_patterns("build", ".git"))
        self.run(["cmake", "--preset", "dev", "-B", str(self.build), "-DCMAKE_CXX_FLAGS_DEBUG=-O0",
                  "-DCAIRN_WERROR=OFF", "-DCAIRN_BUILD_BENCHMARKS=OFF", "-DCAIRN_BUILD_PYTHON=OFF"], check=True)
        self.run(["cmake", "--build", str(self.build), "--target", *TESTS, *PAIR_TARGETS, *INSTALLED], check=True,
                 seconds=None)
        if not self.passes(TESTS + PAIR_TESTS):
            sys.exit("mutate.py: the tests fail without a mutant; mend that first")

    def run(self, command, check=False, seconds=600):
        return subprocess.run(command, cwd=self.tree, check=check, timeout=seconds,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode

    def command(self, test):
        if test.startswith("library."):
            return ["ctest", "--test-dir", str(self.build), "--no-tests=error", "--tests-regex", f"^{re.escape(test)}$"]
        return [str(self.build / "bin" / test), "--gtest_brief=1", "--gtest_fail_fast"]

    def passes(self, tests):
        try:
            return all(self.run(self.command(test), seconds=120) == 0 for test in tests)
        except subprocess.TimeoutExpired:
            return False

    def verdict(self, mutant):
        """"caught", "survived", or "does not compile"."""
        path = self.tree / mutant.file
        original = path.read_text()
        path.write_text(mutant.text)
        try:
            if self.run(["cmake", "--build", str(self.build), "--target", *mutant.targets]) != 0:
                return "does not compile"
            return "survived" if self.passes(mutant.tests) else "caught"
        finally:
            path.write_text(original)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--sample", type=int, metavar="N", help="only N mutants, chosen at random")
    parser.add_argument("--seed", type=int, default=1, help="of the choice (1)")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="builds at a time (one a processor)")
    parser.add_argument("--match", metavar="TEXT", help="only mutants whose description holds TEXT")
    parser.add_argument("--list", action="store_true", help="list them and stop")
    options = parser.parse_args()

    chosen = [mutant for mutant in mutants() if not options.match or options.match in str(mutant)]
    if options.sample is not None and options.sample < len(chosen):
        chosen = random.Random(options.seed).sample(chosen, options.sample)
    if options.list:
        print(*chosen, sep="\n")
        print(f"{len(chosen)} mutants")
        return 0

    counts = {"caught": 0, "survived": 0, "does not compile": 0}
    with tempfile.TemporaryDirectory() as folder:
        workshops = queue.Queue()
        for i in range(options.jobs):
            workshops.put(Workshop(pathlib.Path(folder) / str(i)))

        def try_out(mutant):
            workshop = workshops.get()
            try:
                return mutant, workshop.verdict(mutant)
            finally:
                workshops.put(workshop)

        with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
            for done, (mutant, verdict) in enumerate(pool.map(try_out, chosen), 1):
                counts[verdict] += 1
                if verdict != "caught":
                    print(f"{verdict}: {mutant}", flush=True)
                if sys.stderr.isatty():
                    print(f"\r{done} of {len(chosen)}", end="", file=sys.stderr)
    print(f"{len(chosen)} mutants: {counts['caught']} caught, {counts['survived']} survived, "
          f"{counts['does not compile']} do not compile")
    return 0 if counts["caught"] == len(chosen) else 1


if __name__ == "__main__":
    sys.exit(main())
