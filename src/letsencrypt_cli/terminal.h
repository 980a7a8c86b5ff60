// Words for people: lines on standard error, and only when it is a terminal. Programs read the
// document on standard output, which says nothing of all this. Nothing that is told here changes
// what the program does.
#pragma once

#include <string>
#include <vector>

#include "base/sl_error.h"
#include "letsencrypt_cli/options.h"

namespace kova {

// "kova-letsencrypt: TEXT" on a line of its own. Control characters in it are made visible.
void TellPeople(const std::string& text);

// Why it failed and what to try (lifecycle/advice.h). `names` are those of the certificate.
void TellFailure(const SLError& error, const std::vector<std::string>& names);

// Before a command begins: without root it will not be able to finish.
void TellMissingRoot();

// Before anything is asked for: an id that is given, but no certificate of the archive.
void TellUnknownCertificate(const std::string& id);

// Before an issuance: names that are not taken as they were meant.
void TellMisreadNames(const CommandOptions& given);

// Which of the two options that new-cert cannot do without is not there.
void TellMissingOption(const CommandOptions& given);

}  // namespace kova
