#pragma once

#include <optional>
#include <string_view>

#include "applogic/platform/secure_store.h"

// How the Linux secure stores write an item's class and accessibility as text. The SQLite file
// and the keyring hold these words, so they may never change.
namespace applogic::platform::detail {

inline std::string_view classText(SecureItemClass itemClass) {
  switch (itemClass) {
    case SecureItemClass::genericPassword:
      return "genp";
  }
  return "";
}

inline std::optional<SecureItemClass> classFromText(std::string_view text) {
  if (text == "genp") return SecureItemClass::genericPassword;
  return std::nullopt;
}

inline std::string_view accessibleText(SecureItemAccessible accessible) {
  switch (accessible) {
    case SecureItemAccessible::afterFirstUnlock:
      return "afterFirstUnlock";
    case SecureItemAccessible::whenUnlocked:
      return "whenUnlocked";
  }
  return "";
}

inline std::optional<SecureItemAccessible> accessibleFromText(std::string_view text) {
  if (text == "afterFirstUnlock") return SecureItemAccessible::afterFirstUnlock;
  if (text == "whenUnlocked") return SecureItemAccessible::whenUnlocked;
  return std::nullopt;
}

}  // namespace applogic::platform::detail
