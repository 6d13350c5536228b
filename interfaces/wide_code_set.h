// Wide text of the interface beyond Unicode's first 65,536 characters: pairs of UTF-16 code units
// on the wire, one wchar_t here.
#pragma once

/// The name for the ORB's option nativeWCharCodeSet. The ORB's own UTF-16 refuses such a character
/// where wchar_t has 32 bits, and its UCS-4 loses the end of a text that has one.
inline constexpr const char WIDE_CODE_SET[] = "UTF-16-in-wchar_t";

/// Makes it known to the ORB, which can't forget it again: the library that holds this must stay
/// loaded as long as the ORB's does. To be called before the ORB starts; a second call does
/// nothing.
void register_wide_code_set();
