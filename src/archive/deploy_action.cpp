#include "archive/deploy_action.h"

namespace kova::cert_archive {

// Rows 0 and 1 are the same, and both are in use.
const CRTActionInfo rgCRTActionInfo[4] = {
    {kActionMove, 0, 0, true},
    {kActionMoveAlias, 0, 0, true},
    {kActionRedeploy, 1, 1, true},
    {kActionAdd, 0, 1, false},
};

const CRTActionInfo* FindAction(std::span<const CRTActionInfo> table, int action) {
  if (action < 0 || static_cast<size_t>(action) >= table.size()) return nullptr;
  const CRTActionInfo& row = table[static_cast<size_t>(action)];
  return row.action == action ? &row : nullptr;
}

}  // namespace kova::cert_archive
