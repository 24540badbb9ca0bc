# Runs at install time, from cmake_install.cmake (see vyr_install_configured
# in CMakeLists.txt): configures a template with the paths of the install
# that is running and installs the result. The paths follow the prefix the
# install really goes to, `cmake --install --prefix` included, so that the
# developer's install and the package (configured with VYR_CLUSTER_DIR and
# VYR_ADMIN_BINDIR) both name the places their programs went to.
#
# vyr_installing(TEMPLATE <file> DESTINATION <dir> NAME <name> [PROGRAM]
#                WORK <folder> CLUSTER_DIR <dir or empty> ADMIN_BINDIR <dir>
#                POLICY_DIR <dir> [READ <variable> <file>]...)
# Folders that are not absolute are under the prefix. The template sees
#   VYR_PREFIX         the install directory: CLUSTER_DIR, else the prefix
#   VYR_SH_PROGRAM     vyrvip, vyrctl and the policy folder as the inside of
#   VYR_SH_CTL         a double-quoted shell word: "$VYR_PREFIX/..." when
#   VYR_SH_POLICY_DIR  under the install directory, else the absolute path
#   every READ variable, the text of its file.

function(vyr_installing_absolute out dir)
  if(IS_ABSOLUTE "${dir}")
    set(${out} "${dir}" PARENT_SCOPE)
  else()
    set(${out} "${CMAKE_INSTALL_PREFIX}/${dir}" PARENT_SCOPE)
  endif()
endfunction()

function(vyr_installing)
  cmake_parse_arguments(PARSE_ARGV 0 arg "PROGRAM"
                        "TEMPLATE;DESTINATION;NAME;WORK;CLUSTER_DIR;ADMIN_BINDIR;POLICY_DIR" "READ")
  if("${arg_CLUSTER_DIR}" STREQUAL "")
    set(VYR_PREFIX "${CMAKE_INSTALL_PREFIX}")
  else()
    set(VYR_PREFIX "${arg_CLUSTER_DIR}")
  endif()
  vyr_installing_absolute(bindir "${arg_ADMIN_BINDIR}")
  vyr_installing_absolute(policy "${arg_POLICY_DIR}")
  vyr_installing_absolute(destination "${arg_DESTINATION}")
  # The shell quotes these paths; a quote, '$', '`' or '\' in one would
  # change what the shell reads.
  foreach(path "${VYR_PREFIX}" "${bindir}" "${policy}")
    if(path MATCHES "[\"'$`\\\\\n]")
      message(FATAL_ERROR "${arg_NAME} cannot name a path with a quote, '$', '`' or '\\': ${path}")
    endif()
  endforeach()
  foreach(pair "VYR_SH_PROGRAM;${bindir}/vyrvip" "VYR_SH_CTL;${bindir}/vyrctl"
               "VYR_SH_POLICY_DIR;${policy}")
    list(GET pair 0 variable)
    list(GET pair 1 path)
    string(FIND "${path}" "${VYR_PREFIX}/" at)
    if(at EQUAL 0)
      string(LENGTH "${VYR_PREFIX}" length)
      string(SUBSTRING "${path}" ${length} -1 rest)
      set(path "\$VYR_PREFIX${rest}")
    endif()
    set(${variable} "${path}")
  endforeach()
  set(reads ${arg_READ})
  while(reads)
    list(POP_FRONT reads variable file)
    file(READ "${file}" ${variable})
  endwhile()

  # A folder of this install's own: installs into several prefixes may run
  # at once from one build tree (the end-to-end tests do).
  string(RANDOM LENGTH 16 tag)
  set(work "${arg_WORK}/installing-${tag}")
  configure_file("${arg_TEMPLATE}" "${work}/${arg_NAME}" @ONLY)
  if(arg_PROGRAM)
    set(type PROGRAM)
  else()
    set(type FILE)
  endif()
  file(INSTALL DESTINATION "${destination}" TYPE ${type} FILES "${work}/${arg_NAME}")
  file(REMOVE_RECURSE "${work}")
endfunction()
