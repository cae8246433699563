// mod_proxy's header for C++, beside the library's: both have an enumerator NONE.
#ifndef TAV_HOSTS_HTTPD_MODPROXY_H
#define TAV_HOSTS_HTTPD_MODPROXY_H

#include "tavModule.h" // what mod_proxy.h includes

extern "C" {
#define NONE PROXY_HEALTH_CHECK_NONE
#include <mod_proxy.h>
#undef NONE
}

#endif
