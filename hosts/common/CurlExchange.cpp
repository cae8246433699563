#include "CurlExchange.h"

#include <memory>

#include "CurlOptions.h"
#include "HostFault.h"

namespace tavhost {

namespace {

constexpr size_t LARGEST_ANSWER = 64u << 20; // bytes

size_t collect(char *data, size_t, size_t size, void *passback) {
    return takePart(*static_cast<std::string *>(passback), data, size, LARGEST_ANSWER);
}

} // namespace

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
