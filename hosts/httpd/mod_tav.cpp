// mod_tav: forwards requests to the endpoints that the library decides on.
//
// Each child process holds a library instance, a worker of the one daemon process that the parent keeps running. A request is mapped when
// its name is translated; one that the library handles skips the file system, passes authentication and authorisation as any other, and is
// forwarded by the content handler through mod_proxy's own workers, one for each endpoint.
#include "tavModule.h"

#include "modProxy.h"

namespace {

void registerHooks(apr_pool_t *) {
    using namespace modtav;
    static const char *const proxy[] = {"mod_proxy.c", nullptr};
    ap_hook_check_config(checkConfig, nullptr, nullptr, APR_HOOK_MIDDLE);
    ap_hook_post_config(postConfig, nullptr, nullptr, APR_HOOK_MIDDLE);
    ap_hook_child_init(childInit, proxy, nullptr, APR_HOOK_MIDDLE); // endpoints need its lock
    ap_hook_translate_name(translateName, nullptr, proxy, APR_HOOK_FIRST);
    ap_hook_map_to_storage(mapToStorage, nullptr, proxy, APR_HOOK_FIRST);
    ap_hook_fixups(fixups, nullptr, nullptr, APR_HOOK_FIRST);
    ap_hook_handler(handleRequest, nullptr, proxy, APR_HOOK_FIRST);
    ap_hook_handler(handleStatus, nullptr, nullptr, APR_HOOK_MIDDLE);
    ap_hook_log_transaction(logTransaction, nullptr, nullptr, APR_HOOK_FIRST);
    ap_hook_pre_connection(preConnection, nullptr, nullptr, APR_HOOK_LAST);
    APR_OPTIONAL_HOOK(proxy, create_req, proxyCreateRequest, nullptr, nullptr, APR_HOOK_MIDDLE);
    registerFilters();
}

} // namespace

module_struct tav_module = {STANDARD20_MODULE_STUFF, nullptr,       nullptr, modtav::createServerConfig, modtav::mergeServerConfig,
                            modtav::directives,      registerHooks, 0};
