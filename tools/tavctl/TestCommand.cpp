// tavctl test: runs scenario files and reports what is not as expected.
#include <fmt/format.h>

#include <algorithm>

#include "Commands.h"
#include "scenario/Scenario.h"
#include "support/Fault.h"
#include "support/Json.h"
#include "support/Output.h"
#include "support/Progress.h"

namespace tavctl {

namespace {

struct TestOptions {
    std::vector<std::string> files;
    bool json = false;
    bool coverage = false;
    double failUnder = -1;
};

class Reporter : public ScenarioListener {
public:
    explicit Reporter(bool json) : json_(json), progress_("test") {}

    void start(const std::string &file) {
        progress_.name(file);
        heldInFile_ = missedInFile_ = 0;
    }
    void result(const json_t *result) override {
        if (!json_) return;
        progress_.clear();
        out("{}\n", jsonLine(result));
    }
    void held(int) override { heldInFile_++; }
    void missed(const std::string &file, int line, const std::string &title, const std::vector<Difference> &differences) override;
    void stepped() override { progress_.step(); }
    void finish(const std::string &file, bool understood);
    void fault(const char *text) {
        faults_++;
        progress_.clear();
        complain(text);
    }
    void summary(size_t files); // when all files are through
    size_t misses() const { return misses_; }
    size_t faults() const { return faults_; }

private:
    FILE *stream() const { return json_ ? stderr : outStream(); }
    bool json_;
    Progress progress_;
    size_t heldInFile_ = 0, missedInFile_ = 0;
    size_t expectations_ = 0, misses_ = 0, faults_ = 0;
};

void Reporter::missed(const std::string &file, int line, const std::string &title, const std::vector<Difference> &differences) {
    missedInFile_++;
    progress_.clear();
    size_t width = 0;
    for (const Difference &difference : differences) width = std::max(width, difference.where.size());
    fmt::print(stream(), "{} {}\n", paint(Colour::Red, fmt::format("{}:{}:", file, line), stream()), title);
    for (const Difference &difference : differences) {
        fmt::print(stream(), "    {:<{}}  expected {}\n", difference.where, width, paint(Colour::Green, difference.expected, stream()));
        fmt::print(stream(), "    {:<{}}  but is   {}\n", "", width, paint(Colour::Red, difference.actual, stream()));
    }
}

// What held before a line that is not understood is no result of the file.
void Reporter::finish(const std::string &file, bool understood) {
    const size_t all = heldInFile_ + missedInFile_;
    expectations_ += all;
    misses_ += missedInFile_;
    progress_.clear();
    if (json_ || !understood) return;
    if (missedInFile_ == 0)
        out("{}: {}\n", file, paint(Colour::Green, fmt::format("{} expectation{} held", all, all == 1 ? "" : "s")));
    else
        out("{}: {}\n", file, paint(Colour::Red, fmt::format("{} of {} expectations missed", missedInFile_, all)));
}

void Reporter::summary(size_t files) {
    progress_.end();
    if (json_ || files < 2) return;
    out("{} files, {} expectations, {} missed", files, expectations_, misses_);
    if (faults_ > 0) out(", {} not understood", faults_);
    out("\n");
}

int run(const TestOptions &options) {
    Reporter reporter(options.json);
    Coverage coverage;
    const bool covers = options.coverage || options.failUnder >= 0;
    for (const std::string &file : options.files) {
        reporter.start(file);
        bool understood = true;
        try {
            Scenario(file, reporter, covers ? &coverage : nullptr).run();
        } catch (const InternalFault &) {
            throw;
        } catch (const Fault &fault) {
            understood = false;
            reporter.fault(fault.what());
        }
        reporter.finish(file, understood);
    }
    reporter.summary(options.files.size());
    if (covers) coverage.print(options.json ? stderr : outStream());
    if (reporter.faults() > 0) return EXIT_UNREADABLE;
    if (coverage.percent() < options.failUnder) {
        complain(fmt::format("coverage {:.1f}% is under {}%", coverage.percent(), options.failUnder));
        return EXIT_FINDINGS;
    }
    return reporter.misses() > 0 ? EXIT_FINDINGS : EXIT_GOOD;
}

} // namespace

void addTestCommand(CLI::App &app, Run &result) {
    CLI::App *command = app.add_subcommand("test", "Run scenario files and report what is not as expected");
    auto options = std::make_shared<TestOptions>();
    command->add_option("files", options->files, "Scenario files (JSON Lines)")->required()->type_name("FILE.jsonl");
    command->add_flag("--json", options->json, "Print one JSON object for each line that gives a result");
    command->add_flag("--coverage", options->coverage, "Tell which rules, web modules and virtual-host groups no request touched");
    command->add_option("--fail-under", options->failUnder, "Exit with 1 when the coverage is under this percentage")
        ->type_name("PERCENT")
        ->check(CLI::Range(0.0, 100.0));
    command->footer(
        "Exit status: 0 all expectations hold, 1 a miss, 2 a file or line that is not understood.\n\nExamples:\n"
        "  tavctl test shop.jsonl tenants.jsonl\n"
        "  tavctl test --coverage --fail-under 80 shop.jsonl\n"
        "  tavctl test --json shop.jsonl | jq .endpoint.server");
    command->callback([options, &result] { result = [options] { return run(*options); }; });
}

} // namespace tavctl
