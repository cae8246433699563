// Requests from command-line options.
#include <fmt/format.h>
#include <strings.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <string_view>

#include "decision/Request.h"
#include "support/Fault.h"

namespace tavctl {

namespace {

std::string_view trim(std::string_view text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

int parsePort(std::string_view text, std::string_view whole) {
    int port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port < 0 || port > 65535)
        throw Fault(fmt::format("'{}': '{}' is no port", whole, text));
    return port;
}

// "host", "host:port" or "[address]:port"; false: no port given.
bool readAuthority(std::string_view text, std::string_view whole, EnvHttpContext &request) {
    const size_t bracket = text.starts_with('[') ? text.find(']') : std::string_view::npos;
    const size_t colon = text.find(':', bracket == std::string_view::npos ? 0 : bracket);
    request.host = std::string(text.substr(0, colon));
    if (colon == std::string_view::npos) return false;
    request.port = parsePort(text.substr(colon + 1), whole);
    return true;
}

void readTarget(std::string_view text, EnvHttpContext &request) {
    text = text.substr(0, text.find('#'));
    const size_t mark = text.find('?');
    const std::string_view path = text.substr(0, mark);
    request.path = path.empty() ? "/" : std::string(path);
    if (mark != std::string_view::npos) request.query = std::string(text.substr(mark + 1));
}

void readUrl(const std::string &url, EnvHttpContext &request) {
    std::string_view rest = url;
    const size_t scheme = rest.find("://");
    if (scheme == std::string_view::npos) {
        if (!rest.starts_with('/')) throw Fault(fmt::format("'{}': write http://HOST[:PORT]/PATH or /PATH", url));
        return readTarget(rest, request);
    }
    request.protocol = std::string(rest.substr(0, scheme));
    rest.remove_prefix(scheme + 3);
    const size_t slash = std::min(rest.find_first_of("/?#"), rest.size());
    if (!readAuthority(rest.substr(0, slash), url, request)) request.port = request.protocol == "https" ? 443 : 80;
    readTarget(rest.substr(slash), request);
}

void addCookies(std::string_view text, EnvHttpContext &request) {
    while (!text.empty()) {
        const size_t end = std::min(text.find(';'), text.size());
        const std::string_view pair = trim(text.substr(0, end));
        const size_t equals = pair.find('=');
        if (!pair.empty() && equals == std::string_view::npos) throw Fault(fmt::format("cookie '{}': write NAME=VALUE", pair));
        if (!pair.empty()) request.cookies[std::string(trim(pair.substr(0, equals)))] = std::string(trim(pair.substr(equals + 1)));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

void addHeader(const std::string &header, EnvHttpContext &request) {
    const size_t colon = header.find(':');
    const std::string name(trim(std::string_view(header).substr(0, colon)));
    if (colon == std::string::npos || name.empty()) throw Fault(fmt::format("header '{}': write 'NAME: VALUE'", header));
    const std::string value(trim(std::string_view(header).substr(colon + 1)));
    request.headers[name].push_back(value);
    if (strcasecmp(name.c_str(), "Cookie") == 0) addCookies(value, request);
    if (strcasecmp(name.c_str(), "Host") == 0) readAuthority(value, header, request);
}

} // namespace

void RequestOptions::addTo(CLI::App &command) {
    command.add_option("-X,--method", method, "Request method")->capture_default_str()->type_name("METHOD");
    command.add_option("-H,--header", headers, "Request header 'NAME: VALUE'; Host and Cookie act as in a web server (repeatable)")
        ->type_name("HEADER")
        ->allow_extra_args(false);
    command.add_option("-b,--cookie", cookies, "Cookies 'NAME=VALUE; NAME=VALUE' (repeatable)")
        ->type_name("COOKIES")
        ->allow_extra_args(false);
    command.add_option("--client", clientIp, "The client's address")->capture_default_str()->type_name("IP");
}

EnvHttpContext RequestOptions::request(const std::string &url) const {
    EnvHttpContext request;
    request.method = method;
    request.clientIp = clientIp;
    readUrl(url, request);
    for (const std::string &header : headers) addHeader(header, request);
    for (const std::string &cookie : cookies) addCookies(cookie, request);
    request.listeningPort = request.port;
    return request;
}

std::string requestTitle(const EnvHttpContext &request) {
    return fmt::format("{} {}://{}:{}{}{}{}", request.method.value_or("-"), request.protocol.value_or("-"), request.host.value_or("-"),
                       request.port, request.path.value_or("-"), request.query ? "?" : "", request.query.value_or(""));
}

} // namespace tavctl
