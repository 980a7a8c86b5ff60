// Handing certificates to the services that use them.
//
// Every service gets its own copy of the certificate's files, owned by its user, in a folder that
// is replaced as a whole; then its subscriber's reload script is run and the index is brought up to
// date. One service that fails does not stop the others. Failures are logged.
#pragma once

#include <json/value.h>

#include <string>

#include "archive/deploy_action.h"
#include "base/status.h"

namespace kova::cert_archive {

// Deploys the certificate `target` to an array of ServiceObjects. `source` is the certificate that
// they are moved away from; empty for actions that move nothing. Done when every service was
// served, else what kept the first one from it.
Status RegisterAndDeploy(const std::string& target, const Json::Value& services,
                         const std::string& source, int action);

// The same with kActionRedeploy for an array that was read out of the index: a service that another
// process has meanwhile taken from the certificate is left alone.
Status RedeployListed(const std::string& target, const Json::Value& services);

// Puts right what a deployment left that was killed or could not tidy up. Every deployment begins
// with it; this is for commands that may come by without one.
void FinishInterruptedDeployment();

// Moves one service to the certificate `target`. Who lists it is looked up when nobody else can
// move it meanwhile: with an empty `from` it is taken from every other certificate (and stays where
// it is when the target alone lists it), else it must still be listed by `from`.
Status TransferService(const std::string& target, const Json::Value& object,
                       const std::string& from);

// Deploys a certificate anew to the services that the index lists for it. On success
// `has_system_default` tells whether the system's default service is one of them.
Status DeployToOwnServices(const std::string& id, bool& has_system_default);

// Deploys the default certificate to the services. Fails when there is no default certificate.
Status HandToDefault(const Json::Value& services, int action, const std::string& source);

}  // namespace kova::cert_archive
