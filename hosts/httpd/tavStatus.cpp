// The status of all processes: SetHandler tav-status.
#include <ap_expr.h>
#include <sys/random.h>
#include <util_script.h>

#include <cstring>
#include <string_view>

#include "StatusReport.h"
#include "tavModule.h"

namespace modtav {

namespace {

constexpr std::chrono::milliseconds PATIENCE{2000}; // with all processes together

struct Answer {
    const char *contentType;
    std::string text;
    int status = HTTP_OK;
};

// ---- the formats ----

tavhost::Json report() {
    if (statusStem().empty()) return tavhost::mergeStatus({}, "The library does not run: TavEnable is On for no server.");
    return tavhost::mergeStatus(tavhost::askAll(statusStem(), PATIENCE), "The library runs in no process: see the error log.");
}

// Without an answer there is nothing to read but why.
int statusOf(const json_t *report) {
    return json_array_size(json_object_get(report, "clusters")) || json_object_get(report, "library") ? HTTP_OK : HTTP_SERVICE_UNAVAILABLE;
}

Answer asJson(request_rec *) {
    const tavhost::Json merged = report();
    return {"application/json", tavhost::jsonText(merged.get()), statusOf(merged.get())};
}

Answer asMetrics(request_rec *) {
    const tavhost::Json merged = report();
    return {"text/plain; version=0.0.4; charset=utf-8", tavhost::metricsText(merged.get()), statusOf(merged.get())};
}

// Only what the page itself brings runs in it, and it asks only the server it came from.
Answer asPage(request_rec *r) {
    unsigned char random[16];
    if (getrandom(random, sizeof random, 0) != sizeof random) return {"text/plain", "", HTTP_INTERNAL_SERVER_ERROR};
    std::string nonce;
    for (const unsigned char byte : random) nonce.append({"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]});
    const std::string policy = "default-src 'none'; script-src 'nonce-" + nonce + "'; style-src 'nonce-" + nonce +
                               "'; connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
    apr_table_set(r->headers_out, "Content-Security-Policy", policy.c_str());
    return {"text/html; charset=utf-8", tavhost::statusPage(nonce)};
}

struct Format {
    const char *name;
    const char *suffix; // of the path
    const char *accept; // in the header
    Answer (*answer)(request_rec *r);
};
constexpr Format FORMATS[] = {
    {"html", "/html", "text/html", asPage},
    {"json", "/json", "application/json", asJson},
    {"prometheus", "/metrics", "text/plain", asMetrics},
};

const char *queryFormat(request_rec *r) {
    apr_table_t *arguments = nullptr;
    ap_args_to_table(r, &arguments);
    return apr_table_get(arguments, "format");
}

// By the query, else by the path's end, else by what the client accepts; null: it asks for a format that there is not.
const Format *chooseFormat(request_rec *r) {
    if (const char *asked = queryFormat(r)) {
        for (const Format &format : FORMATS) {
            if (strcmp(format.name, asked) == 0) return &format;
        }
        return nullptr;
    }
    for (const Format &format : FORMATS) {
        if (std::string_view(r->uri).ends_with(format.suffix)) return &format;
    }
    const char *accepted = apr_table_get(r->headers_in, "Accept");
    for (const Format &format : FORMATS) {
        if (accepted && strstr(accepted, format.accept)) return &format;
    }
    return &FORMATS[0];
}

Answer answerTo(request_rec *r) {
    const Format *format = chooseFormat(r);
    if (!format) return {"text/plain; charset=utf-8", "There are the formats html, json and prometheus.\n", HTTP_BAD_REQUEST};
    try {
        return format->answer(r);
    } catch (const std::exception &fault) {
        ap_log_rerror(APLOG_MARK, APLOG_ERR, 0, r, "the status cannot be shown: %s", fault.what());
        return {"text/plain; charset=utf-8", "The status cannot be shown; see the error log.\n", HTTP_INTERNAL_SERVER_ERROR};
    }
}

int send(request_rec *r, const Answer &answer) {
    apr_table_setn(r->headers_out, "Cache-Control", "no-store");
    apr_table_setn(r->headers_out, "X-Content-Type-Options", "nosniff");
    apr_table_mergen(r->headers_out, "Vary", "Accept");
    ap_set_content_type(r, answer.contentType);
    ap_set_content_length(r, static_cast<apr_off_t>(answer.text.size()));
    r->status = answer.status;
    ap_rwrite(answer.text.data(), static_cast<int>(answer.text.size()), r);
    return OK;
}

} // namespace

bool asksForStatus(request_rec *r) {
    const auto *config = static_cast<const core_dir_config *>(ap_get_core_module_config(r->per_dir_config));
    const char *handler = config->handler, *fault = nullptr;
    if (config->expr_handler) handler = ap_expr_str_exec(r, config->expr_handler, &fault);
    return !fault && handler && strcasecmp(handler, STATUS_HANDLER) == 0;
}

int handleStatus(request_rec *r) {
    if (!r->handler || strcmp(r->handler, STATUS_HANDLER) != 0) return DECLINED;
    ap_allow_standard_methods(r, REPLACE_ALLOW, M_GET, M_POST, -1);
    if (const int explained = explainRequest(r); explained != DECLINED) return explained;
    if (r->method_number != M_GET) return HTTP_METHOD_NOT_ALLOWED;
    return send(r, answerTo(r));
}

} // namespace modtav
