// Port forwarding on the home router, by named rule sets.
#pragma once

struct KOVA_PORTMAP_RULE {
  int router_port;
  int reserved;  // always 0
  int device_port;
};

struct KOVA_RULE_SET_RESULT {
  int port;               // router port of the rule
  unsigned char success;  // non-zero: the router confirmed it
};

// 0 when a router that accepts port mappings was found, any other value is a failure code.
int KLibKovaPortMapRouterDetect();

// Replaces the named set by the rules (both null and 0: removes it) and reports rule by rule, in
// rule order. 0 when the call succeeded, even if single rules were refused; negative otherwise.
int KLibKovaPortMapRulesSet(KOVA_RULE_SET_RESULT* results, int result_count, const char* name,
                            const KOVA_PORTMAP_RULE* rules, int rule_count);

// Edits only the host's own record of the sets, /usr/kova/etc/portmap.json. 0, or negative.
int KLibKovaPortMapRulesConfigSet(const char* name, const KOVA_PORTMAP_RULE* rules, int rule_count);
