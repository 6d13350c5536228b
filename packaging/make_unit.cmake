# Makes the systemd unit ${made} from ${unit} for a program in the ${bindir} of the prefix, whose path may
# hold what systemd would take apart: it is put in quotes, and what means something within them is escaped.
get_filename_component(path "${CMAKE_INSTALL_PREFIX}/${bindir}/vlsld" ABSOLUTE)
string(REPLACE "\\" "\\\\" start "${path}")
string(REPLACE "\"" "\\\"" start "${start}")
string(REPLACE "%" "%%" start "${start}")
set(start "\"${start}\"")
if(path MATCHES "['\"\\\\]") # systemd takes these for an argument, but not for what it starts itself
  string(REPLACE "$" "$$" start "/usr/bin/env ${start}")
endif()
configure_file("${unit}" "${made}" @ONLY)
