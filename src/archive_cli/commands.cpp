#include "archive_cli/command.h"

namespace kova::archive_cli {

const std::vector<const Command*>& Commands() {
  static const std::vector<const Command*> commands = {
      &kObtain, &kList,  &kAdd,   &kRemove, &kDefault, &kBind,      &kUnbind,
      &kDeploy, &kCheck, &kRenew, &kRevoke, &kAccount, &kSelfSigned};
  return commands;
}

void Require(const Status& status, const std::string& context) {
  if (!status) throw Failure{context + status.Text()};
}

}  // namespace kova::archive_cli
