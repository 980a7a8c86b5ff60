// A name server in the place of res_query(3), so that an answer costs no network.
#pragma once

#include <string>

namespace kova::bench {

// From now on a query for the TXT records below that name is answered with so many records, the
// last of which holds `last`. At most 64: they have to fit into 4096 bytes.
void AnswerTxtQueries(const std::string& domain, int records, const std::string& last);

}  // namespace kova::bench
