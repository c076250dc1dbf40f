# Fails unless README contains the text of EXAMPLE verbatim.
file(READ ${README} readme)
file(READ ${EXAMPLE} example)
string(FIND "${readme}" "${example}" at)
if(at EQUAL -1)
  message(FATAL_ERROR "README.md does not show ${EXAMPLE} verbatim")
endif()
