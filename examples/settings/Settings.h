// The settings of a program: a bag for each user, and defaults that the machine's owner sets for all.
#pragma once

#include <ormutil/MemoryProperties.h>
#include <ormutil/PersistentProperties.h>

#include <string>

namespace settings {

class Settings {
 public:
  explicit Settings(const orm::String& bagName);

  orm::PersistentProperties& GetUser() { return mUser; }
  orm::PersistentProperties& GetMachine() { return mMachine; }

  // What applies to this user: the defaults, and on top of them the user's own settings. A copy: it does not
  // follow later changes.
  orm::MemoryProperties GetEffective() const;

  // Takes settings that another program has exported into the user's bag. All or nothing: data that turn out
  // to be damaged half way change nothing.
  void Import(const orm::Binary& data);

 private:
  orm::PersistentProperties mUser;
  orm::PersistentProperties mMachine;
};

// The value as it is shown: a number in decimal, a string as it stands, a buffer as hexadecimal digits.
std::string ToText(const orm::Properties& bag, const orm::String& name);

// "number", "string", "binary", or "none" when there is no such property.
const char* TypeName(orm::Properties::PropertyType type);

// Sets a property from what ToText gives for the type. Throws std::invalid_argument when the text is no such
// value.
void SetFromText(orm::Properties& bag, const orm::String& name, const std::string& type,
                 const std::string& text);

}  // namespace settings
