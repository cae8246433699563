// Between the files of the request mapper.
#ifndef TAVREQUESTMAPPER_RMINTERNAL_H
#define TAVREQUESTMAPPER_RMINTERNAL_H

#include "tavRequestMapper/tavRequestMapper.h"

// Free the record with what it owns. The caller has taken it out of its application's list.
void webModuleFree(WebModule *webModule) noexcept;
void workClassFree(WebRouteWorkClass *workClass) noexcept;

// Keeps a policy that requests may still read until the mapper dies; null ignored. Any thread.
void rmRetirePolicy(RequestMapper *rm, HttpAffinityPolicy *policy) noexcept;

#endif
