// Reading one HTTP/1.1 response.
#ifndef TAVHTTPCLIENT_HTTPRESPONSE_H
#define TAVHTTPCLIENT_HTTPRESPONSE_H

#include <tav/env.h>

#include "tavHttpClient/inputStream.h"

inline constexpr size_t HTTP_MAX_BODY = size_t{1} << 30; // bytes

// `reused`: the socket has carried a response before, so the line end of its last chunk may come first. `*keepOpen` tells whether the
// socket may carry another request. Returns new; null on a response that does not hold together.
TavHttpResponse *readHttpResponse(InputStream *stream, bool reused, bool *keepOpen) noexcept;

#endif
