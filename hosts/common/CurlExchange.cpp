#include "CurlExchange.h"

#include <memory>

#include "CurlOptions.h"
#include "HostInstance.h"

namespace tavhost {

namespace {

constexpr size_t LARGEST_ANSWER = 64u << 20; // bytes

size_t collect(char *data, size_t, size_t size, void *passback) {
    auto *body = static_cast<std::string *>(passback);
    if (size > LARGEST_ANSWER - body->size()) return 0;
    body->append(data, size);
    return size;
}

void setText(CURL *easy, CURLoption option, const std::string &text) {
    if (!text.empty()) curl_easy_setopt(easy, option, text.c_str());
}

} // namespace

void startCurl() {
    static const CURLcode started = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (started != CURLE_OK) throw HostFault("libcurl cannot be started");
}

void setCurlOptions(CURL *easy, const TransportOptions &options) {
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT, static_cast<long>(options.connectTimeout));
    setText(easy, CURLOPT_CAINFO, options.authorities);
    setText(easy, CURLOPT_SSLCERT, options.certificate);
    setText(easy, CURLOPT_SSLKEY, options.key);
    setText(easy, CURLOPT_PROXY, options.proxy);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, options.verifyServer ? 1L : 0L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, options.verifyServer ? 2L : 0L);
}

HttpAnswer postJson(const std::string &url, const std::string &body, const TransportOptions &options, int timeout) {
    startCurl();
    const std::unique_ptr<CURL, void (*)(CURL *)> easy(curl_easy_init(), curl_easy_cleanup);
    if (!easy) throw HostFault("libcurl cannot be started");
    const std::unique_ptr<curl_slist, void (*)(curl_slist *)> headers(curl_slist_append(nullptr, "Content-Type: application/json"),
                                                                      curl_slist_free_all);
    HttpAnswer answer{};
    char fault[CURL_ERROR_SIZE] = "";
    setCurlOptions(easy.get(), options);
    curl_easy_setopt(easy.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy.get(), CURLOPT_TIMEOUT, static_cast<long>(timeout));
    curl_easy_setopt(easy.get(), CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(easy.get(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(easy.get(), CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(easy.get(), CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(easy.get(), CURLOPT_WRITEDATA, &answer.body);
    curl_easy_setopt(easy.get(), CURLOPT_ERRORBUFFER, fault);
    if (const CURLcode result = curl_easy_perform(easy.get()); result != CURLE_OK)
        throw HostFault(*fault ? fault : curl_easy_strerror(result));
    long status = 0;
    curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &status);
    answer.status = static_cast<int>(status);
    return answer;
}

} // namespace tavhost
