#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <set>

#include "HostInstance.h"
#include "StatusReport.h"
#include "StatusService.h"

using namespace std::chrono_literals;
using namespace tavhost;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

// ---- the service ----

class Status : public ::testing::Test {
protected:
    std::string folder = [] {
        char name[] = "/tmp/tav-status-XXXXXX";
        return std::string(mkdtemp(name));
    }();
    std::string stem = folder + "/daemon.sock.status";

    ~Status() override { std::filesystem::remove_all(folder); }
    std::set<std::string> files() const {
        std::set<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(folder)) names.insert(entry.path().filename());
        return names;
    }
    // A socket as another process would have it; it takes connections and says nothing, or is dead.
    int socketOf(int pid, bool listening) const {
        const int made = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{AF_UNIX, {}};
        snprintf(address.sun_path, sizeof address.sun_path, "%s.%d", stem.c_str(), pid);
        EXPECT_EQ(bind(made, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        EXPECT_TRUE(!listening || listen(made, 5) == 0);
        return made;
    }
    std::string ownSocket() const { return stem + "." + std::to_string(getpid()); }
};

TEST_F(Status, everyAnswerComesWholeAndNothingStaysBehind) {
    std::string text(3'000'000, 'x'); // more than a socket holds
    {
        StatusService service(stem, [&] { return text; });
        struct stat file;
        ASSERT_EQ(stat(ownSocket().c_str(), &file), 0);
        EXPECT_EQ(file.st_mode & 0777, 0600u);
        for (int i = 0; i < 3; i++) {
            const std::vector<StatusAnswer> answers = askAll(stem, 20s).processes;
            ASSERT_EQ(answers.size(), 1u);
            EXPECT_EQ(answers[0].pid, getpid());
            EXPECT_TRUE(answers[0].whole && answers[0].text == text);
        }
    }
    EXPECT_THAT(files(), ElementsAre("daemon.sock.status.kept"));
}

TEST_F(Status, whoDoesNotAnswerHoldsNobodyUp) {
    const int silent = socketOf(1, true), dead = socketOf(2, false);
    close(open((stem + ".3").c_str(), O_CREAT | O_WRONLY, 0600));
    close(open((stem + ".x4").c_str(), O_CREAT | O_WRONLY, 0600));
    std::vector<StatusAnswer> answers;
    {
        StatusService service(stem, []() -> std::string { throw std::bad_alloc(); });
        answers = askAll(stem, 200ms).processes;
    }
    ASSERT_EQ(answers.size(), 2u); // of the silent one and of the one that throws
    EXPECT_FALSE(answers[0].whole);
    EXPECT_TRUE(answers[1].whole && answers[1].text.empty());
    EXPECT_THAT(files(), ElementsAre("daemon.sock.status.1", "daemon.sock.status.3", "daemon.sock.status.kept", "daemon.sock.status.x4"))
        << "only dead sockets go";
    close(silent);
    close(dead);
}

TEST_F(Status, endsWhileAReaderDoesNotRead) {
    std::string text(3'000'000, 'x');
    const int reader = socket(AF_UNIX, SOCK_STREAM, 0);
    {
        StatusService service(stem, [&] { return text; });
        sockaddr_un address{AF_UNIX, {}};
        snprintf(address.sun_path, sizeof address.sun_path, "%s", ownSocket().c_str());
        ASSERT_EQ(connect(reader, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        char first;
        ASSERT_EQ(read(reader, &first, 1), 1); // it is in the middle of the answer
    }
    close(reader);
    const auto keep = [](const std::string &kept, const std::string &last) { return kept + last; };
    for (const char *last : {"a", "longer", "b"})
        StatusService(
            stem, [last] { return last; }, keep);
    EXPECT_EQ(askAll(stem, 20s).kept, "alongerb");
    EXPECT_THROW(StatusService(folder + "/none/sock", [] { return ""; }), HostFault);
    EXPECT_THROW(StatusService(folder + std::string(120, 'x'), [] { return ""; }), HostFault);
}

// ---- the report ----

// {'a': 1} for {"a": 1}
std::string quoted(std::string text) {
    std::replace(text.begin(), text.end(), '\'', '"');
    return text;
}

StatusAnswer answer(int pid, const std::string &text) { return {pid, quoted(text), true}; }

std::string worker(int version, const std::string &server, const std::string &more = "") {
    return "{'library': '1', 'process': 'ClientProcess', 'state': 'STARTED', 'version': " + std::to_string(version) +
           ", 'clusters': [{'name': '/c', 'servers': [{'name': '/s', " + server + "}]}]" + more + "}";
}

const std::string DAEMON =
    "{'process': 'ServerProcess', 'state': 'STARTED', 'version': 2, 'clusters': [{'name': '/c', 'servers': [{'name': '/s', "
    "'requests': 1000}]}], 'groups': [{'name': 'main', 'connectors': [{'url': 'http://x', 'state': 'FAILED'}]}]}";

json_t *firstServer(const Json &report) {
    return json_array_get(json_object_get(json_array_get(json_object_get(report.get(), "clusters"), 0), "servers"), 0);
}

TEST(StatusReport, serversAddUp) {
    const struct {
        const char *one, *other, *expected;
    } rows[] = {
        {"'outstanding': 1, 'requests': 10, 'responseTime': 20, 'selectable': true",
         "'outstanding': 2, 'requests': 30, 'responseTime': 40, 'selectable': true",
         "{'name':'/s','outstanding':3,'requests':40,'responseTime':35.0,'selectable':true}"},
        {"'requests': 0, 'responseTime': 0, 'selectable': true", "'requests': 3, 'responseTime': 7.5, 'selectable': true",
         "{'name':'/s','requests':3,'responseTime':7.5,'selectable':true}"},
        {"'responseTime': 5", "'responseTime': 9", "{'name':'/s','responseTime':5,'selectable':false}"},
        {"'selectable': false, 'reason': 'server is full'", "'selectable': true", // near miss: one of two
         "{'name':'/s','selectable':true,'reason':'server is full','selectableIn':1}"},
        {"'selectable': false, 'reason': 'full'", "'selectable': false, 'reason': 'server is full'",
         "{'name':'/s','selectable':false,'reason':'full; server is full'}"},
        {"'selectable': false, 'reason': 'full'", "'selectable': false, 'reason': 'full'",
         "{'name':'/s','selectable':false,'reason':'full'}"},
        {"'selectable': true, 'endpoints': [{'host': 'a', 'port': 1, 'available': false, 'reason': 'down'}]",
         "'selectable': true, 'endpoints': [{'host': 'a', 'port': 1, 'available': true}, {'host': 'a', 'port': 2, 'available': false}]",
         "{'name':'/s','selectable':true,'endpoints':[{'host':'a','port':1,'available':true,'reason':'down'},"
         "{'host':'a','port':2,'available':false}]}"},
    };
    for (const auto &row : rows) {
        const Json report = mergeStatus({{answer(1, DAEMON), answer(2, worker(2, row.one)), answer(3, worker(2, row.other))}, ""}, "");
        json_t *server = firstServer(report);
        if (!json_object_get(server, "selectable")) json_object_set_new(server, "selectable", json_false());
        const Json expected(json_loads(quoted(row.expected).c_str(), 0, nullptr));
        EXPECT_TRUE(json_equal(server, expected.get())) << jsonText(server);
    }
}

TEST(StatusReport, theNewestConfigurationLeads) {
    const std::string edition =
        ", 'applications': [{'name': '/a', 'editions': [{'name': '1', 'servers': [{'name': '/s', 'selectable': true}]}]}]";
    const Json report = mergeStatus({{answer(7, worker(1, "'weight': 1", edition + ", 'rules': [{'set': 'old'}]")),
                                      answer(8, worker(2, "'weight': 5", ", 'rules': []")),
                                      answer(6, DAEMON),
                                      {9, "{\"process\": ", true},
                                      {10, "", false}},
                                     ""},
                                    "");
    EXPECT_EQ(numberOf(firstServer(report), "weight"), 5);
    EXPECT_EQ(json_array_size(json_object_get(report.get(), "applications")), 1u);
    EXPECT_EQ(json_array_size(json_object_get(report.get(), "rules")), 0u);
    EXPECT_STREQ(textOf(json_array_get(json_object_get(report.get(), "groups"), 0), "name"), "main") << "the daemon's";
    std::vector<std::string> roles;
    for (const json_t *process : objectsOf(report.get(), "processes"))
        roles.push_back(std::string(textOf(process, "role")) + (flagOf(process, "inStep") ? "" : "?"));
    EXPECT_THAT(roles, ElementsAre("daemon", "worker?", "worker", "unknown?", "unknown?"));
    EXPECT_THAT(jsonText(json_object_get(report.get(), "problems")),
                AllOf(HasSubstr("2 processes did not answer"), HasSubstr("1 process has an older"), Not(HasSubstr("daemon"))));
}

TEST(StatusReport, saysWhatIsMissing) {
    EXPECT_EQ(jsonText(mergeStatus({}, "nobody").get()), quoted("{'version':-1,'problems':['nobody'],'processes':[]}\n"));
    const Json alone = mergeStatus({{answer(2, worker(2, "'weight': 1"))}, ""}, "nobody");
    EXPECT_THAT(jsonText(alone.get()), AllOf(HasSubstr("no daemon answers"), Not(HasSubstr("nobody"))));
    for (const char *strange :
         {"[]", "{}", "{'clusters': 5}", "{'clusters': [7, {'servers': {}}, {'servers': ['x', {}]}], 'groups': 'x'}"}) {
        const Json report = mergeStatus({{answer(1, strange), answer(2, strange)}, strange}, "");
        EXPECT_THAT(metricsText(report.get()), HasSubstr("tav_processes_silent"));
    }
}

TEST(StatusReport, metricsEscapeNamesAndLeaveOutWhatIsNotWhole) {
    const std::string server =
        "'requests': 4, 'responseTime': 1500, 'maintenance': 'affinity', 'endpoints': [{'protocol': 'http', 'host': "
        "'a\\\"b\\\\c\\nd', 'port': 80, 'available': true}]";
    const std::string kept =
        keepCounts(keepCounts("{", keepCounts(keepCounts("", quoted(worker(1, "'requests': 30"))), "[]")), // half a text, no document
                   quoted(worker(2, "'requests': 2")));
    StatusAnswers answers{{answer(1, worker(2, server)), answer(2, worker(2, server))}, kept};
    const std::string whole = metricsText(mergeStatus(answers, "").get());
    EXPECT_THAT(whole, HasSubstr("tav_server_requests_total{cluster=\"/c\",server=\"/s\"} 40\n"));
    EXPECT_THAT(whole, HasSubstr("tav_server_response_time_seconds{cluster=\"/c\",server=\"/s\"} 1.5\n"));
    EXPECT_THAT(whole, HasSubstr("tav_server_maintenance{cluster=\"/c\",server=\"/s\"} 1\n"));
    EXPECT_THAT(whole, HasSubstr("endpoint=\"http://a\\\"b\\\\c\\nd:80\"} 1\n"));
    answers.processes.push_back({3, "", false});
    EXPECT_THAT(metricsText(mergeStatus(answers, "").get()), Not(HasSubstr("requests_total")));
}

} // namespace
