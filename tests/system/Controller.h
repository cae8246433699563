// A controller with a script of versions, as an HTTP server in the test: every version of the shop comes as a complete document, the odd
// ones also as a delta for who has the one before. Long polls wait until there is something newer.
#ifndef SYSTEM_CONTROLLER_H
#define SYSTEM_CONTROLLER_H

#include <condition_variable>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class Controller {
public:
    explicit Controller(int version);
    ~Controller();
    Controller(const Controller &) = delete;
    Controller &operator=(const Controller &) = delete;

    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
    int publish();  // the next version
    void restart(); // drops every connection and listens again at the same port
    // How often each report came since the last clearing: "add ROUTE", "del ROUTE", "true SERVER", "false SERVER".
    std::map<std::string, int> reports();
    void clearReports();

private:
    void open();
    void close();
    void accept();
    void converse(int fd);
    std::string answer(const std::string &head, const std::string &body, std::unique_lock<std::mutex> &lock);
    void note(const std::string &body);
    std::string documentFor(int version, long long known) const;

    std::mutex mutex_;
    std::condition_variable changed_;
    int version_;
    int port_ = 0;
    int listener_ = -1;
    bool closing_ = false;
    std::list<int> connections_;
    std::vector<std::thread> threads_;
    std::thread acceptor_;
    std::map<std::string, int> reports_;
};

#endif
