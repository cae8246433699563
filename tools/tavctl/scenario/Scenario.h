// Runs one scenario file (docs/scenario-format.md) against an instance of its own.
#ifndef TAVCTL_SCENARIO_H
#define TAVCTL_SCENARIO_H

#include <map>
#include <string>
#include <vector>

#include "decision/Decision.h"
#include "engine/Engine.h"
#include "scenario/Coverage.h"
#include "scenario/Expectation.h"

namespace tavctl {

// Hears what comes out of a scenario; `file` and the rest are borrowed for the call.
class ScenarioListener {
public:
    virtual ~ScenarioListener() = default;
    virtual void result(const json_t *result) = 0;
    virtual void held(int line) = 0; // an expectation
    virtual void missed(const std::string &file, int line, const std::string &title, const std::vector<Difference> &differences) = 0;
    virtual void stepped() = 0; // a line is done
};

class Scenario {
public:
    Scenario(std::string file, ScenarioListener &listener, Coverage *coverage);

    void run(); // throws Fault with file, line and reason

private:
    void runLine(int number, const json_t *line);
    void dispatch(const json_t *line);
    void document(const json_t *line);
    void property(const json_t *line);
    void request(const json_t *line);
    void state(const json_t *line);
    void retarget(const json_t *line);
    void response(const json_t *line);
    void release(const json_t *line);
    void dump(const json_t *line);

    std::string documentText(const json_t *value) const;
    RoutedRequest &find(const json_t *line);
    void finish(const json_t *line, Json result, const std::string &title);

    std::string file_;
    int line_ = 0;
    ScenarioListener &listener_;
    Coverage *coverage_; // may be null
    Engine engine_;
    std::map<std::string, RoutedRequest> requests_; // released before the engine goes
    std::vector<RoutedRequest> replaced_;           // whose id another request took; open until the end
};

} // namespace tavctl

#endif
