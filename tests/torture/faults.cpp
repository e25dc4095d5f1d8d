// Makes each C library call of each of the 44 functions fail, once or from then on. A function that
// fails must change nothing, report the failure, succeed when repeated and leak nothing.
//
//   torture_faults [FAULTS [SEED [STEP]]]    FAULTS: number of faults to try, 0 (default) for all;
//                                            STEP: try only faults in this step
#include <dirent.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <numeric>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "embedded/orv/content/failure.h"
#include "embedded/pqar/parameter_codes.h"
#include "module/interface/orv.h"
#include "tests/torture/shim.h"

namespace {

using namespace embedded;

constexpr std::uint16_t unformattedClass = QAR_CLS_VORLAGEOM;

// Result of a step. Does not allocate, because the failing call may be an allocation.
struct Outcome {
    std::uint32_t code = 0;
    std::array<unsigned char, 600> output{};
    bool operator==(const Outcome&) const = default;
};

// The scenario's contexts and names.
struct World {
    std::array<OrvContext, 5> contexts{};
    std::string folder;
    std::string first = folder + "/first.qar";
    std::string second = folder + "/second.qar";
    OrvNodeRecord node{};
};

Outcome of(OrvStatus status) {
    return {status, {}};
}

Outcome of(OrvResult result, OrvContext context) {
    std::uint32_t code = 0;
    std::uint32_t unused = 0;
    const bool known = result != 0 && OrvErrorQuery(context, &code, &unused, &unused) == 0;
    return {known && code != 0 ? code : static_cast<std::uint16_t>(result), {}};
}

template <typename Output>
Outcome with(Outcome outcome, const Output& output) {
    if (outcome.code == 0) {
        static_assert(sizeof output <= sizeof outcome.output);
        std::memcpy(outcome.output.data(), &output, sizeof output);
    }
    return outcome;
}

struct Step {
    const char* name;
    Outcome (*call)(World&);
    // True if the step deletes a context, which is final even if its source cannot be saved.
    bool deletes = false;
};

template <typename Value>
OrvStatus put(OrvContext context, std::uint32_t code, const Value& value, int record = 1,
              int entry = 0) {
    return SOrvPutParam(context, code, record, entry, &value, sizeof value);
}

std::array<std::int32_t, 256> channelsFrom(std::int32_t first) {
    std::array<std::int32_t, 256> channels{};
    std::iota(channels.begin(), channels.end(), first);
    return channels;
}

constexpr std::array<float, 2> energyKey = {661.7F, 1.0F};

// clang-format off
const Step steps[] = {
    {"SOrvCreateDSC", [](World& w) { return of(SOrvCreateDSC(nullptr, w.contexts.data(), 0, 0)); }},
    {"SOrvEnumNodes", [](World& w) { std::uint32_t n = 1; return of(SOrvEnumNodes(w.contexts[0], &w.node, &n, ORV_NODE_SELECTOR)); }},
    {"OrvNodeEnumeration", [](World& w) { std::uint16_t n = 1; return of(OrvNodeEnumeration(w.contexts[0], &w.node, &n, ORV_NODE_SELECTOR), w.contexts[0]); }},
    {"OrvCreateDSC2", [](World& w) { return of(OrvCreateDSC2(&w.node, &w.contexts[1], 0, 0), w.contexts[0]); }},
    {"SOrvCreateDSC2", [](World& w) { return of(SOrvCreateDSC2(nullptr, &w.contexts[2], 0, 0)); }},
    {"SOrvCreateFile", [](World& w) { return of(SOrvCreateFile(w.contexts[0], w.first.c_str(), 1, 65535, 1, 32768)); }},
    {"OrvFileCreation", [](World& w) { return of(OrvFileCreation(w.contexts[1], w.second.c_str(), 1, 65535, 1, 32768), w.contexts[1]); }},
    {"SOrvPutParam double", [](World& w) { return of(put(w.contexts[0], QAR_D_LIVETIME, 1.5)); }},
    {"SOrvPutParam text", [](World& w) { return of(put(w.contexts[0], QAR_C_COMMENT, "a text of more characters than a short string holds")); }},
    {"OrvParameterWrite", [](World& w) { const double v = 2.5; return of(OrvParameterWrite(w.contexts[0], QAR_D_REALTIME, 1, 0, &v, sizeof v), w.contexts[0]); }},
    {"OrvCreateBlock", [](World& w) { return of(OrvCreateBlock(w.contexts[0], ORV_SPECTRUM_CLASS, 512, 0), w.contexts[0]); }},
    {"SOrvPutSpectrum", [](World& w) { static const auto channels = channelsFrom(1000); return of(SOrvPutSpectrum(w.contexts[0], 1, 256, channels.data())); }},
    {"SOrvPutParam channels", [](World& w) { return of(put(w.contexts[0], QAR_L_CHANNELS, std::int32_t{256})); }},
    {"SOrvPutParam nuclide 1", [](World& w) { return of(put(w.contexts[0], QAR_C_NUCLNAME, "Cs-137")); }},
    {"SOrvPutParam line 1", [](World& w) { return of(put(w.contexts[0], QAR_D_LINEENERGY, 32.0, 1, 1)); }},
    {"SOrvPutParam line 2", [](World& w) { return of(put(w.contexts[0], QAR_D_LINEENERGY, 661.66, 1, 2)); }},
    {"SOrvPutParam nuclide 2", [](World& w) { return of(put(w.contexts[0], QAR_C_NUCLNAME, "Co-60", 2)); }},
    {"OrvCreateBlock to fill", [](World& w) { return of(OrvCreateBlock(w.contexts[0], unformattedClass, 600, 0), w.contexts[0]); }},
    {"OrvWriteUFBlock", [](World& w) { static const auto data = channelsFrom(3); return of(OrvWriteUFBlock(w.contexts[0], unformattedClass, data.data(), 1000, 0), w.contexts[0]); }},
    {"SOrvFlush", [](World& w) { return of(SOrvFlush(w.contexts[0])); }},
    {"OrvCreateBlock to refill", [](World& w) { return of(OrvCreateBlock(w.contexts[0], unformattedClass, 600, -1), w.contexts[0]); }},
    {"OrvWriteUFBlock refilling", [](World& w) { static const auto data = channelsFrom(7); return of(OrvWriteUFBlock(w.contexts[0], unformattedClass, data.data(), 512, 0), w.contexts[0]); }},
    {"SOrvFlush refilling", [](World& w) { return of(SOrvFlush(w.contexts[0])); }},
    {"OrvWriteUFBlock more", [](World& w) { static const auto data = channelsFrom(9); return of(OrvWriteUFBlock(w.contexts[0], unformattedClass, data.data(), 100, 0), w.contexts[0]); }},
    {"SOrvInsertOne record", [](World& w) { return of(SOrvInsertOne(w.contexts[0], QAR_CLS_NUCLIDE, 1, 0)); }},
    {"SOrvInsertOne entry", [](World& w) { return of(SOrvInsertOne(w.contexts[0], QAR_CLS_NUCLIDE, 2, 1)); }},
    {"SOrvPutParam inserted", [](World& w) { return of(put(w.contexts[0], QAR_D_LINEENERGY, 30.0, 2, 1)); }},
    {"OrvDataSourceFlush", [](World& w) { return of(OrvDataSourceFlush(w.contexts[0]), w.contexts[0]); }},
    {"SOrvDeleteOne entry", [](World& w) { return of(SOrvDeleteOne(w.contexts[0], QAR_CLS_NUCLIDE, 2, 2)); }},
    {"SOrvDeleteOne record", [](World& w) { return of(SOrvDeleteOne(w.contexts[0], QAR_CLS_NUCLIDE, 1, 0)); }},
    {"SOrvPutParam peak", [](World& w) { return of(put(w.contexts[0], QAR_D_PEAKENERGY, 661.0)); }},
    {"SOrvCloseDataSource", [](World& w) { return of(SOrvCloseDataSource(w.contexts[0])); }},
    {"SOrvOpenDataSource", [](World& w) { return of(SOrvOpenDataSource(w.contexts[0], w.first.c_str(), 1, 3, 0, nullptr)); }},
    {"SOrvQueryDSC", [](World& w) { std::array<std::uint32_t, 65> state{}; const auto status = SOrvQueryDSC(w.contexts[0], 3, state.data()); return with(of(status), state); }},
    {"SOrvClassCount", [](World& w) { std::uint16_t n = 0; const auto status = SOrvClassCount(w.contexts[0], QAR_CLS_NUCLIDE, &n); return with(of(status), n); }},
    {"OrvRecordCount", [](World& w) { std::uint16_t n = 0; const auto result = OrvRecordCount(w.contexts[0], QAR_CLS_PEAK, &n); return with(of(result, w.contexts[0]), n); }},
    {"SOrvGetParam", [](World& w) { double v = 0; const auto status = SOrvGetParam(w.contexts[0], QAR_D_LIVETIME, 1, 0, &v, sizeof v); return with(of(status), v); }},
    {"OrvParameterRead", [](World& w) { std::array<char, 256> v{}; const auto result = OrvParameterRead(w.contexts[0], QAR_C_COMMENT, 1, 0, v.data(), v.size()); return with(of(result, w.contexts[0]), v); }},
    {"OrvParameterDescriptionQuery", [](World& w) { const OrvParameterDescriptionKey key{"", 0, QAR_D_REALTIME & 0xFFFFU, QAR_D_REALTIME >> 16U}; OrvParameterDescription d{}; const auto result = OrvParameterDescriptionQuery(w.contexts[0], &key, &d); return with(of(result, w.contexts[0]), d); }},
    {"SOrvGetSpectrum", [](World& w) { std::array<std::int32_t, 140> v{}; const auto status = SOrvGetSpectrum(w.contexts[0], 100, 140, 0, v.data()); return with(of(status), v); }},
    {"SOrvEntryCount", [](World& w) { std::uint16_t n = 0; const auto status = SOrvEntryCount(w.contexts[0], QAR_CLS_NUCLIDE, 1, &n); return with(of(status), n); }},
    {"SOrvFindRecord name", [](World& w) { std::uint16_t r = 0; std::uint32_t word = 0; const auto status = SOrvFindRecord(w.contexts[0], 2, "co", 0, &r, &word); return with(of(status), r); }},
    {"SOrvFindRecord energy", [](World& w) { std::uint16_t r = 0; std::uint32_t word = 0; const auto status = SOrvFindRecord(w.contexts[0], 4, energyKey.data(), 0, &r, &word); return with(of(status), r); }},
    {"OrvReadUFBlock", [](World& w) { std::array<char, 512> v{}; std::uint32_t n = 1; const auto result = OrvReadUFBlock(w.contexts[0], unformattedClass, 8, v.data(), 512, 0, &n); return with(of(result, w.contexts[0]), v); }},
    {"SOrvQueryDataSource", [](World& w) { std::uint32_t word = 0; const auto status = SOrvQueryDataSource(w.contexts[0], 1, &word); return with(of(status), word); }},
    {"SOrvReVerify", [](World& w) { return of(SOrvReVerify(w.contexts[0])); }},
    {"SOrvControlDSC check", [](World& w) { return of(SOrvControlDSC(w.contexts[0], 3, 0)); }},
    {"SOrvFirstInput", [](World& w) { std::array<char, ORV_INPUT_NAME_SIZE> v{}; const auto status = SOrvFirstInput(w.contexts[0], 0, v.data()); return with(of(status), v); }},
    {"SOrvNextInput", [](World& w) { std::array<char, ORV_INPUT_NAME_SIZE> v{}; const auto status = SOrvNextInput(w.contexts[0], v.data()); return with(of(status), v); }},
    {"OrvCreateBlock for the copy", [](World& w) { return of(OrvCreateBlock(w.contexts[1], QAR_CLS_NUCLIDE, 0, 0), w.contexts[1]); }},
    {"SOrvClassCopy", [](World& w) { return of(SOrvClassCopy(w.contexts[0], w.contexts[1], QAR_CLS_NUCLIDE)); }},
    {"OrvClassCopy", [](World& w) { const auto side = OrvClassCopy(w.contexts[0], w.contexts[1], QAR_CLS_NUCLIDE); return of(side, w.contexts[side == 4 ? 1 : 0]); }},
    {"SOrvCopyRecord", [](World& w) { return of(SOrvCopyRecord(w.contexts[0], QAR_CLS_NUCLIDE, 1, w.contexts[1], 3, 0)); }},
    {"SOrvFlush copied", [](World& w) { return of(SOrvFlush(w.contexts[1])); }},
    {"OrvDataSourceDuplication", [](World& w) { return of(OrvDataSourceDuplication(w.contexts[0], w.contexts[1]), w.contexts[0]); }},
    {"SOrvSaveAs", [](World& w) { return of(SOrvSaveAs(w.contexts[0], w.contexts[1])); }},
    {"SOrvPutParam before levels", [](World& w) { return of(put(w.contexts[1], QAR_C_RESNUCLIDE, "Co-60")); }},
    {"SOrvDeleteLevel", [](World& w) { return of(SOrvDeleteLevel(w.contexts[1], 1)); }},
    {"SOrvFlush before compaction", [](World& w) { return of(SOrvFlush(w.contexts[1])); }},
    {"SOrvControlDSC compact", [](World& w) { return of(SOrvControlDSC(w.contexts[1], 2, 0)); }},
    {"OrvDataSourceOpening reading", [](World& w) { return of(OrvDataSourceOpening(w.contexts[2], w.second.c_str(), 1, 1, 0, nullptr), w.contexts[2]); }},
    {"SOrvPutParam unsaved", [](World& w) { return of(put(w.contexts[1], QAR_D_REALTIME, 77.0)); }},
    {"OrvDataSourceClosing", [](World& w) { return of(OrvDataSourceClosing(w.contexts[1]), w.contexts[1]); }},
    {"SOrvGetParam after closing", [](World& w) { double v = 0; const auto status = SOrvGetParam(w.contexts[2], QAR_D_REALTIME, 1, 0, &v, sizeof v); return with(of(status), v); }},
    {"SOrvOpenDataSource input", [](World& w) { return of(SOrvOpenDataSource(w.contexts[1], "second", 769, 3, 0, nullptr)); }},
    {"SOrvPutParam before deletion", [](World& w) { return of(put(w.contexts[1], QAR_D_REALTIME, 88.0)); }},
    {"OrvContextDeletion", [](World& w) { return of(OrvContextDeletion(w.contexts[2]), w.contexts[0]); }, true},
    {"SOrvDeleteDSC", [](World& w) { return of(SOrvDeleteDSC(w.contexts[1])); }, true},
    {"SOrvCreateDSC2 again", [](World& w) { return of(SOrvCreateDSC2(nullptr, &w.contexts[3], 0, 0)); }},
    {"SOrvOpenDataSource last", [](World& w) { return of(SOrvOpenDataSource(w.contexts[3], w.second.c_str(), 1, 3, 0, nullptr)); }},
    {"SOrvFlush last", [](World& w) { return of(SOrvFlush(w.contexts[3])); }},
};
// clang-format on
constexpr int stepCount = static_cast<int>(std::size(steps));

// ---- Content of a source as a string ------------------------------------------------------------

constexpr std::uint32_t observedCodes[] = {QAR_D_LIVETIME,   QAR_D_REALTIME,  QAR_C_COMMENT,
                                           QAR_L_CHANNELS,   QAR_C_NUCLNAME,  QAR_D_LINEENERGY,
                                           QAR_D_PEAKENERGY, QAR_C_RESNUCLIDE};
constexpr std::uint16_t observedClasses[] = {QAR_CLS_MEASUREMENT, QAR_CLS_NUCLIDE,
                                             QAR_CLS_SPECTRUM,    QAR_CLS_PEAK,
                                             QAR_CLS_RESULT,      unformattedClass};

template <typename Bytes>
std::string_view viewOf(const Bytes& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), sizeof bytes};
}

void writeRecords(std::ostream& text, OrvContext context, std::uint16_t classCode) {
    std::uint16_t records = 0;
    text << "\nclass " << SOrvClassCount(context, classCode, &records) << ':' << records;
    for (std::uint16_t record = 1; record <= records; ++record) {
        std::uint16_t entries = 0;
        SOrvEntryCount(context, classCode, record, &entries);
        text << '/' << entries;
        for (const std::uint32_t code : observedCodes) {
            for (int entry = 0; entry <= entries && classOf(code) == classCode; ++entry) {
                std::array<char, 256> value{};
                text << ' '
                     << SOrvGetParam(context, code, record, static_cast<std::uint16_t>(entry),
                                     value.data(), value.size())
                     << '=' << viewOf(value);
            }
        }
    }
}

void writeContent(std::ostream& text, OrvContext context) {
    std::uint32_t state = 0;
    text << '\n' << SOrvQueryDataSource(context, 1, &state) << " state " << state;
    for (const std::uint16_t classCode : observedClasses) {
        writeRecords(text, context, classCode);
    }
    std::array<std::int32_t, 256> channels{};
    text << "\nspectrum " << SOrvGetSpectrum(context, 1, 256, 0, channels.data())
         << viewOf(channels);
    std::array<char, 1024> data{};
    std::uint32_t count = 1;
    text << "\nunformatted "
         << OrvReadUFBlock(context, unformattedClass, 0, data.data(), data.size(), 0, &count)
         << viewOf(data);
}

// Returns the names of the files in the folder. Rollback journals are included only if `journals`
// is true, because a later call may still apply them.
std::string namesIn(const std::string& folder, bool journals) {
    std::set<std::string> names;
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
        const std::string name = file.path().filename().string();
        if (journals || !name.ends_with("-journal")) {
            names.insert(name + " ");
        }
    }
    return std::accumulate(names.begin(), names.end(), std::string());
}

std::string snapshot(const World& world) {
    std::ostringstream text;
    text << namesIn(world.folder, false);
    for (const OrvContext context : world.contexts) {
        text << (context != 0);
        writeContent(text, context);
    }
    return text.str();
}

std::ptrdiff_t descriptorCount() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// ---- Reference run and runs with a fault --------------------------------------------------------

struct Reference {
    Outcome outcomes[stepCount];
    std::string snapshots[stepCount + 1];
};

struct Fault {
    int step;
    int kind;
    long nth;
    long times;
};

constexpr long once = 1;
constexpr long forGood = LONG_MAX / 2;

void report(const Fault& fault, const char* failure, std::uint32_t number) {
    std::printf("FAILED %s: %s %ld%s: %s (0x%X)\n", steps[fault.step].name, tortureKind(fault.kind),
                fault.nth, fault.times == once ? "" : " on", failure, number);
}

class Folder {
  public:
    Folder() {
        if (mkdtemp(name_) == nullptr || setenv("ORV_INPUTS", name_, 1) != 0) {
            std::abort();
        }
    }
    ~Folder() { std::filesystem::remove_all(name_); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    [[nodiscard]] std::string name() const { return name_; }

  private:
    char name_[40] = "/dev/shm/torture-faults-XXXXXX";
};

void deleteContexts(const World& world) {
    for (const OrvContext context : world.contexts) {
        SOrvDeleteDSC(context);
    }
}

// Runs the scenario without a fault and appends the number of calls of each step to counts.
Reference referenceRun(std::vector<Fault>* counts) {
    const Folder folder;
    World world{.folder = folder.name()};
    Reference reference;
    reference.snapshots[0] = snapshot(world);
    for (int step = 0; step < stepCount; ++step) {
        tortureArm(-1, 1, 0);
        reference.outcomes[step] = steps[step].call(world);
        tortureDisarm();
        for (int kind = 0; counts != nullptr && tortureKind(kind) != nullptr; ++kind) {
            counts->push_back({step, kind, tortureCalls(kind), 0});
        }
        reference.snapshots[step + 1] = snapshot(world);
    }
    deleteContexts(world);
    return reference;
}

// Runs the scenario with one fault in a process of its own and reports each failed requirement.
class FaultyRun {
  public:
    FaultyRun(const Reference& reference, const Fault& fault)
        : reference_(reference), fault_(fault) {}

    // Returns true if all requirements were met.
    bool run() {
        const std::ptrdiff_t descriptors = descriptorCount();
        const long memory = tortureLiveBytes();
        {
            World world{.folder = folder_.name()};
            for (int step = 0; step < stepCount; ++step) {
                if (step == fault_.step) {
                    runStepWithFault(world);
                } else {
                    const Outcome outcome = steps[step].call(world);
                    require(outcome == reference_.outcomes[step], steps[step].name, outcome.code);
                }
            }
            requireSnapshot(world, stepCount, "wrong content at the end");
            deleteContexts(world);
            require(namesIn(world.folder, true) == "first.qar second.qar ",
                    "unexpected or missing files");
        }
        require(descriptorCount() == descriptors, "a descriptor is leaked");
        require(tortureLiveBytes() == memory, "memory is leaked");
        return !failed_;
    }

  private:
    void require(bool condition, const char* failure, std::uint32_t code = 0) {
        if (!condition) {
            report(fault_, failure, code);
            failed_ = true;
        }
    }

    // Requires the content of the reference run after this number of steps.
    void requireSnapshot(const World& world, int step, const char* failure,
                         std::uint32_t code = 0) {
        require(snapshot(world) == reference_.snapshots[step], failure, code);
    }

    void runStepWithFault(World& world) {
        const int step = fault_.step;
        const Outcome& expected = reference_.outcomes[step];
        tortureArm(fault_.kind, fault_.nth, fault_.times);
        Outcome outcome = steps[step].call(world);
        const bool fired = tortureDisarm() > 0;
        if (steps[step].deletes) {
            return;  // a later step saves the changes that could not be saved now
        }
        if (outcome != expected) {
            require(fired && outcome.code != 0, "success with a wrong result", outcome.code);
            require(std::ranges::count(blamingCodes, outcome.code) == 0,
                    "a system failure is reported as damage or an internal failure", outcome.code);
            requireSnapshot(world, step, "a failed call has changed something", outcome.code);
            outcome = steps[step].call(world);
            require(outcome == expected, "the repeated call has another result", outcome.code);
        }
        if (fired) {
            requireSnapshot(world, step + 1, "the content is wrong", outcome.code);
        }
    }

    static constexpr std::array blamingCodes = {codes::damaged, codes::openedWithRemark,
                                                codes::internalFailure};

    const Reference& reference_;
    const Fault fault_;
    const Folder folder_;
    bool failed_ = false;
};

// Runs the fault in a child process; returns true if it passes. A signal counts as a failure, also
// the alarm that ends a child after a minute.
bool judged(const Reference& reference, const Fault& fault) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        const bool well = FaultyRun(reference, fault).run();
        static_cast<void>(std::fflush(stdout));
        _exit(well ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) {
        report(fault, "ended by a signal", static_cast<std::uint32_t>(WTERMSIG(status)));
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::vector<Fault> faultsOf(const std::vector<Fault>& counts, int onlyStep) {
    std::vector<Fault> faults;
    for (const Fault& count : counts) {
        if (onlyStep >= 0 && count.step != onlyStep) {
            continue;
        }
        for (long nth = 1; nth <= count.nth; ++nth) {
            faults.push_back({count.step, count.kind, nth, once});
            faults.push_back({count.step, count.kind, nth, forGood});
        }
    }
    return faults;
}

}  // namespace

int main(int argumentCount, char** arguments) {
    const auto number = [=](int index, long otherwise) {
        return index < argumentCount ? std::strtol(arguments[index], nullptr, 10) : otherwise;
    };
    const long wanted = number(1, 0);
    const auto seed = static_cast<std::uint32_t>(number(2, 1));
    referenceRun(nullptr);  // allocates everything that is allocated once per process
    std::vector<Fault> counts;
    const Reference reference = referenceRun(&counts);
    for (int step = 0; step < stepCount; ++step) {
        if (reference.outcomes[step].code != 0) {
            std::printf("FAILED %s without a fault: 0x%X\n", steps[step].name,
                        reference.outcomes[step].code);
            return 1;
        }
    }
    std::vector<Fault> faults = faultsOf(counts, static_cast<int>(number(3, -1)));
    const std::size_t possible = faults.size();
    std::ranges::shuffle(faults, std::minstd_rand(seed));
    if (wanted > 0 && std::cmp_less(wanted, faults.size())) {
        faults.resize(static_cast<std::size_t>(wanted));
    }
    static_cast<void>(std::setvbuf(stdout, nullptr, _IOLBF, 0));
    const auto failed = std::ranges::count_if(
        faults, [&](const Fault& fault) { return !judged(reference, fault); });
    std::printf("tried %zu faults in the 44 functions\n%zu are possible, seed %u, %td failed\n",
                faults.size(), possible, seed, failed);
    return failed == 0 ? 0 : 1;
}
