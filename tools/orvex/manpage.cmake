# Writes the orvex(1) manual page from the tool's help: cmake -DTOOL=... -DOUT=... -DHOME=...
# [-DEMULATOR=...] -P manpage.cmake. The overview becomes DESCRIPTION, each 'orvex COMMAND --help'
# a subsection.

function(run_tool out_var)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env ORVEX_HOST_HOME=${HOME} ${EMULATOR} ${TOOL} ${ARGN}
                  OUTPUT_VARIABLE text RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "orvex ${ARGN} failed (${rc})")
  endif()
  set(${out_var} "${text}" PARENT_SCOPE)
endfunction()

# roff: backslashes escaped, no line read as a request, option dashes as minus signs.
function(to_roff out_var text)
  string(REPLACE "\\" "\\e" text "${text}")
  string(REPLACE "-" "\\-" text "${text}")
  string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" text "${text}")
  set(${out_var} "${text}" PARENT_SCOPE)
endfunction()

file(MAKE_DIRECTORY ${HOME})
run_tool(version --version)
string(STRIP "${version}" version)
run_tool(overview --help)
string(REPLACE "${HOME}"
       "$ORVEX_HOST_HOME, else $XDG_DATA_HOME/orvex, else ~/.local/share/orvex" overview
       "${overview}")
string(REGEX MATCH "\n\n([^\n]*)\n" summary "${overview}")
string(STRIP "${summary}" summary)
string(REGEX MATCH "Commands:\n(.*)\n\nOptions:" listing "${overview}")
string(REGEX MATCHALL "\n  [a-z]+ " names "\n${CMAKE_MATCH_1}")

to_roff(overview "${overview}")
to_roff(summary "${summary}")
set(page ".TH ORVEX 1 \"\" \"${version}\" \"User Commands\"\n.SH NAME\norvex \\- ${summary}\n")
string(APPEND page ".SH DESCRIPTION\n.nf\n${overview}.fi\n.SH COMMANDS\n")
foreach(name ${names})
  string(STRIP "${name}" name)
  run_tool(help ${name} --help)
  to_roff(help "${help}")
  string(APPEND page ".SS ${name}\n.nf\n${help}.fi\n")
endforeach()
file(WRITE ${OUT} "${page}")
