// Text in XML.
#pragma once

#include <string>

/// `text` with what XML marks escaped, and what it can't hold replaced.
std::string xml_text(const std::string& text);
