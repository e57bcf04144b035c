# Writes the manual page depattr.1 from the program's own help texts, so that
# the page never lags behind the options. Run by the build with
#   cmake -DDEPATTR=<program> -DVERSION=<version> -DOUTPUT=<file> -P ManPage.cmake
# A script has no project to set its policies: lists keep empty elements.
cmake_policy(SET CMP0007 NEW)
set(ENV{LC_ALL} C)
unset(ENV{LANG})
unset(ENV{LC_MESSAGES})
unset(ENV{DEPATTR_RESOURCES})

# Help text as roff: backslashes doubled, and a line starting with '.' or "'"
# guarded so that it is not read as a request.
function(roff_text input output)
  string(REPLACE "\\" "\\e" text "${input}")
  string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" text "${text}")
  set(${output} "${text}" PARENT_SCOPE)
endfunction()

set(page ".TH DEPATTR 1 \"\" \"depattr ${VERSION}\" \"User Commands\"\n")
string(APPEND page ".SH NAME\ndepattr \\- find missing files, functions, products and other broken dependencies\n")
string(APPEND page ".SH SYNOPSIS\n.B depattr analyze\n[\\fIGRAPH\\fR] [\\fIoptions\\fR]\n.br\n")
string(APPEND page ".B depattr scan\n[\\fIFOLDER\\fR] [\\fIoptions\\fR]\n.br\n.B depattr analyzers\n[\\fB\\-f json\\fR]\n.br\n")
string(APPEND page ".B depattr completion\n\\fBbash\\fR|\\fBzsh\\fR\n")
foreach(section "DESCRIPTION;" "ANALYZE;analyze" "SCAN;scan" "ANALYZERS;analyzers" "COMPLETION;completion")
  list(GET section 0 title)
  list(LENGTH section parts)
  set(command "")
  if(parts GREATER 1)
    list(GET section 1 command)
  endif()
  execute_process(COMMAND ${DEPATTR} ${command} --help OUTPUT_VARIABLE help RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${DEPATTR} ${command} --help failed (${status})")
  endif()
  # Every command's help ends with the exit statuses and the environment:
  # the page gives them once, at the end of the program's own section.
  if(NOT command STREQUAL "")
    string(FIND "${help}" "\nExit status:" status_at)
    if(status_at GREATER -1)
      string(SUBSTRING "${help}" 0 ${status_at} help)
      string(APPEND help "\n")
    endif()
  endif()
  # The program as users call it, not where the build put it.
  string(REPLACE "${DEPATTR}" "depattr" help "${help}")
  roff_text("${help}" help)
  string(APPEND page ".SH ${title}\n.nf\n${help}.fi\n")
endforeach()
string(APPEND page ".SH SEE ALSO\nThe README and docs/ of the depattr sources: the graph format, the findings, the host language.\n")
file(WRITE "${OUTPUT}" "${page}")
