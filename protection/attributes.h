#pragma once

namespace OruKalvix {

// The signed attributes of a protected file, by OID. Each value is a string.
inline constexpr const char* kGroupAttribute = "1.3.6.1.4.1.48215.2.1";  ///< the group whose key signed
inline constexpr const char* kRoomAttribute = "1.3.6.1.4.1.48215.2.2";   ///< the room, for information
inline constexpr const char* kRoomUrlAttribute =
    "1.3.6.1.4.1.48215.2.3";  ///< the URL of the room, for information

}  // namespace OruKalvix
