// ServiceObject: an element of a certificate's "services" array in the index, that is, one service
// that uses the certificate. docs/formats.md lists its members.
#pragma once

#include <json/value.h>

#include <string>

namespace kova::cert_archive {

// What deployment needs to know of a valid ServiceObject.
struct Service {
  std::string subscriber;  // a system component or a package
  std::string name;        // the service within it
  std::string owner;       // user that owns the deployed files
  bool is_package;

  // The folder that its certificate files are deployed into.
  [[nodiscard]] std::string Folder() const;
  // The subscriber's program that makes the service take up new files.
  [[nodiscard]] std::string ReloadScript() const;
  // False when a name would lead elsewhere than to a folder of its own: both must be plain names,
  // and no system component may be called like the archive itself. Never use Folder() or
  // ReloadScript() without it.
  [[nodiscard]] bool StaysInItsFolder() const;
};

// True when every required member is there and every member that is there has its exact type and,
// if it is a text, is not empty. A missing member is logged, the rest fails silently.
[[nodiscard]] bool IsValidServiceObject(const Json::Value& object);

// `object` must be valid.
[[nodiscard]] Service ServiceFrom(const Json::Value& object);

// Same subscriber and service; the other members do not matter. False for anything that lacks them.
[[nodiscard]] bool IsSameService(const Json::Value& left, const Json::Value& right);

// True when the certificate's entry of the index lists the service.
[[nodiscard]] bool Lists(const Json::Value& entry, const Json::Value& object);

// True when the array lists subscriber "system", service "default". Invalid elements are logged and
// passed over.
[[nodiscard]] bool HasSystemDefault(const Json::Value& services);

// The numbers are those that other programs of the archive use.
enum class ListUpdate {
  kAppend = 0,   // insert, or move to the end
  kRemove = 1,   // take off
  kRefresh = 2,  // replace, at the end, where it was listed
};

// The one edit of a "services" array. Elements that are not objects with the texts "subscriber" and
// "service" do not survive it.
void UpdateServiceList(Json::Value& services, const Json::Value& object, ListUpdate update);

}  // namespace kova::cert_archive
