// The five commands. Each takes the arguments from its command word on and returns the exit status.
#pragma once

namespace kova {

int NewCertCommand(int argc, char** argv);
int RenewAllCommand(int argc, char** argv);
int RevokeCommand(int argc, char** argv);
int RenewCommand(int argc, char** argv);
int AddCronjobCommand(int argc, char** argv);

}  // namespace kova
