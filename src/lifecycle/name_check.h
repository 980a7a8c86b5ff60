// What a person typed to obtain a certificate, looked at before a CA is asked.
#pragma once

#include <string>
#include <vector>

namespace kova {

// The names in lower case, each once, in their order.
std::vector<std::string> TidyNames(const std::vector<std::string>& names);

// Why no certificate can be asked for under that name, in words; empty for a host name, which may
// begin with "*.".
std::string WhyNoName(const std::string& name);

// The same of all names of one certificate, the first bad one quoted. The first is its subject's,
// which has less room.
std::string WhyNoNames(const std::vector<std::string>& names);

// Why the text is no e-mail address that a CA would take; empty for one.
std::string WhyNoMail(const std::string& mail);

// Why the text is no directory URL; empty for one of http or https.
std::string WhyNoDirectory(const std::string& url);

}  // namespace kova
