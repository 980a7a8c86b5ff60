// Port forwarding on the home router, by named rule sets.
//
// Behind each router call stands a hook (router-detect, router-rules) or, without one, UPnP. Over
// UPnP a mapping is asked for with a lease of an hour, or for good from a router that knows no
// leases, and carries the set's name as its description. A mapping of the wanted port that is not
// this set's own is never touched: when it leads to this very port of this host the rule counts as
// confirmed, else as refused.
//
// The host's own record of the sets follows the router: it takes in a set, with all its rules, once
// the router call for it succeeded, and drops it once the router's removal did.
#pragma once

#include "platform/portmap_record.h"

// 0 when a router that accepts port mappings was found, any other value is a failure code. What
// was found, or not found, serves the later calls of the same process.
int KLibKovaPortMapRouterDetect();

// Replaces the named set by the rules (both null and 0: removes it) and reports rule by rule, in
// rule order. 0 when the call succeeded, even if single rules were refused; negative otherwise.
// That the record could not be written is logged, and does not fail the call.
int KLibKovaPortMapRulesSet(KOVA_RULE_SET_RESULT* results, int result_count, const char* name,
                            const KOVA_PORTMAP_RULE* rules, int rule_count);

// Edits only the host's own record of the sets, /usr/kova/etc/portmap.json; other sets in it stay
// as they are, and a record that is no JSON object is left untouched. 0, or negative.
int KLibKovaPortMapRulesConfigSet(const char* name, const KOVA_PORTMAP_RULE* rules, int rule_count);
