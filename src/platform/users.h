// Users of the host.
#pragma once

#include <sys/types.h>

#include <string>

// 0 and both ids, or negative when there is no such user (error triple set).
int KOVAUserGetUGID(const std::string& name, uid_t* uid, gid_t* gid);
