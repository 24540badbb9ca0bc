# vyr_status_tables(TABLE): reads the exit-status table (one
# "status|name|OCF code|meaning|note" a line, src/vip/base/statuses.txt) and
# sets, in the caller's scope, the texts the build writes into the code, the
# man page and the OCF agent:
#   VYR_STATUS_CONSTANTS  the C++ constants, vyr::status::<name>
#   VYR_STATUS_MEANINGS   the case arms of vyr::status::Meaning
#   VYR_STATUS_MAN        the man page's list (roff), meaning and note
#   VYR_STATUS_SH_TEXT    the case arms of the OCF agent's vyrvip_status_text
#   VYR_STATUS_SH_CODE    the case arms of the OCF agent's vyrvip_ocf_code
# A malformed line, a status or name given twice or an OCF code the agent
# does not know stops the configuration. Editing the table reconfigures.
function(vyr_status_tables table)
  set_property(DIRECTORY "${CMAKE_SOURCE_DIR}" APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${table}")
  file(STRINGS "${table}" lines ENCODING UTF-8)
  set(known_codes OCF_SUCCESS OCF_ERR_GENERIC OCF_ERR_CONFIGURED OCF_ERR_PERM OCF_ERR_INSTALLED)
  set(cxx "")
  set(meanings "")
  set(man "")
  set(sh_text "")
  set(seen_statuses "")
  set(seen_names "")
  set(codes "")
  foreach(line IN LISTS lines)
    if(line MATCHES "^#" OR line MATCHES "^[ \t]*$")
      continue()
    endif()
    if(NOT line MATCHES "^([0-9]+)\\|(k[A-Za-z0-9]+)\\|(OCF_[A-Z_]+)\\|([^|]+)\\|([^|]*)$")
      message(FATAL_ERROR "${table}: not \"status|name|OCF code|meaning|note\": ${line}")
    endif()
    set(status "${CMAKE_MATCH_1}")
    set(name "${CMAKE_MATCH_2}")
    set(code "${CMAKE_MATCH_3}")
    set(meaning "${CMAKE_MATCH_4}")
    set(note "${CMAKE_MATCH_5}")
    if(status IN_LIST seen_statuses OR name IN_LIST seen_names)
      message(FATAL_ERROR "${table}: status ${status} or name ${name} given twice")
    endif()
    if(NOT code IN_LIST known_codes)
      message(FATAL_ERROR "${table}: status ${status}: unknown OCF code ${code}")
    endif()
    if(status GREATER 127)
      message(FATAL_ERROR "${table}: status ${status}: above 127 a status reads as a signal")
    endif()
    list(APPEND seen_statuses "${status}")
    list(APPEND seen_names "${name}")

    string(APPEND cxx "// ${meaning}\ninline constexpr int ${name} = ${status};\n")
    string(REPLACE "\\" "\\\\" cxx_text "${meaning}")
    string(REPLACE "\"" "\\\"" cxx_text "${cxx_text}")
    string(APPEND meanings "    case ${status}:\n      return \"${cxx_text}\";\n")

    set(roff "${meaning}")
    if(NOT note STREQUAL "")
      string(APPEND roff "; ${note}")
    endif()
    string(REPLACE "\\" "\\e" roff "${roff}")
    string(REGEX REPLACE "(^| )-" "\\1\\\\-" roff "${roff}")
    string(APPEND man ".TP\n.B ${status}\n${roff}\n")

    # Single-quoted for the shell: a quote in the text ends the word,
    # escapes one quote and starts a new word.
    string(REPLACE "'" "'\\''" quoted "${meaning}")
    string(APPEND sh_text "\t${status}) echo '${quoted}' ;;\n")

    if(NOT code IN_LIST codes)
      list(APPEND codes "${code}")
      set(statuses_${code} "")
    endif()
    list(APPEND statuses_${code} "${status}")
  endforeach()

  set(sh_code "")
  foreach(code IN LISTS codes)
    list(JOIN statuses_${code} " | " arm)
    string(APPEND sh_code "\t${arm}) echo \"\$${code}\" ;;\n")
  endforeach()

  foreach(text cxx meanings man sh_text sh_code)
    string(REGEX REPLACE "\n$" "" ${text} "${${text}}")
  endforeach()
  set(VYR_STATUS_CONSTANTS "${cxx}" PARENT_SCOPE)
  set(VYR_STATUS_MEANINGS "${meanings}" PARENT_SCOPE)
  set(VYR_STATUS_MAN "${man}" PARENT_SCOPE)
  set(VYR_STATUS_SH_TEXT "${sh_text}" PARENT_SCOPE)
  set(VYR_STATUS_SH_CODE "${sh_code}" PARENT_SCOPE)
endfunction()
