#include <string_view>

#include "StatusReport.h"

extern "C" {
extern const unsigned char tavStatusPage[];
extern const size_t tavStatusPageSize;
}

namespace tavhost {

std::string statusPage(const std::string &nonce) {
    static constexpr std::string_view MARK = "@NONCE@";
    const std::string_view page(reinterpret_cast<const char *>(tavStatusPage), tavStatusPageSize);
    std::string text;
    size_t from = 0;
    for (size_t at; (at = page.find(MARK, from)) != std::string_view::npos; from = at + MARK.size())
        text.append(page.substr(from, at - from)).append(nonce);
    return text.append(page.substr(from));
}

} // namespace tavhost
