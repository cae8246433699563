#include "CurlOptions.h"

#include <strings.h>

#include <cstring>
#include <memory>
#include <new>

#include "HostFault.h"

namespace tavhost {

namespace {

void setText(CURL *easy, CURLoption option, const std::string &text) {
    if (!text.empty()) curl_easy_setopt(easy, option, text.c_str());
}

bool isUrl(const std::string &text, unsigned flags) {
    const std::unique_ptr<CURLU, void (*)(CURLU *)> url(curl_url(), curl_url_cleanup);
    return url && curl_url_set(url.get(), CURLUPART_URL, text.c_str(), flags) == CURLUE_OK;
}

} // namespace

void startCurl() {
    static const CURLcode started = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (started != CURLE_OK) throw HostFault("libcurl cannot be started");
}

bool isProxyUrl(const std::string &text) { return isUrl(text, CURLU_GUESS_SCHEME | CURLU_NON_SUPPORT_SCHEME); }

bool isControllerUrl(const std::string &text) {
    const auto has = [&text](const char *scheme) { return strncasecmp(text.c_str(), scheme, strlen(scheme)) == 0; };
    return (has("http://") || has("https://")) && isUrl(text, 0);
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

size_t takePart(std::string &body, const char *data, size_t size, size_t largest) noexcept try {
    if (size > largest - body.size()) return 0;
    body.append(data, size);
    return size;
} catch (const std::bad_alloc &) {
    return 0;
}

} // namespace tavhost
