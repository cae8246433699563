// A decision in words.
#ifndef TAVCTL_ROUTEPRINT_H
#define TAVCTL_ROUTEPRINT_H

#include "decision/Decision.h"
#include "decision/RuleNames.h"

namespace tavctl {

// With `explaining`: every rule that was tried and every server that was passed over, with the library's own reasons.
void printDecision(const std::string &title, const Decision &told, const RuleNames &names, bool explaining);
// "SERVER http://10.0.0.1:9080", "REJECT with 503: ...", "not handled: ..."
std::string outcomeOf(const RoutedRequest &request);

} // namespace tavctl

#endif
