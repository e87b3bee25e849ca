# Installs the build into a scratch prefix and builds the C consumer against
# the installed tree twice: through find_package(orvaneSDK) and through
# pkg-config. Both programs must run and pass their checks.
#   cmake -DBUILD=<build dir> -DSOURCE=<repo> -DWORK=<scratch dir> -DCC=<C compiler>
#         -DTOOLS=<ON when orvane-replay is built> -P check_install.cmake
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    string(REPLACE ";" " " cmd "${ARGN}")
    message(FATAL_ERROR "${cmd}: ${rc}\n${out}\n${err}")
  endif()
  set(out "${out}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK})
set(prefix ${WORK}/prefix)
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})

foreach(file include/orvane/orvane_webpage.h include/orvane/orvane_ott.h include/orvane/orvane_log.h)
  if(NOT EXISTS ${prefix}/${file})
    message(FATAL_ERROR "not installed: ${file}")
  endif()
endforeach()
file(GLOB_RECURSE libs ${prefix}/lib*/liborvaneSDK.so.1)
file(GLOB_RECURSE pcs ${prefix}/lib*/orvaneSDK.pc)
if(NOT libs OR NOT pcs)
  message(FATAL_ERROR "library or pkg-config file not installed under ${prefix}")
endif()
list(GET libs 0 lib)
list(GET pcs 0 pc)
get_filename_component(libdir ${lib} DIRECTORY)
get_filename_component(pcdir ${pc} DIRECTORY)

# 1. CMake package.
run(${CMAKE_COMMAND} -S ${SOURCE}/tests/c_api -B ${WORK}/cmake -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_C_COMPILER=${CC})
run(${CMAKE_COMMAND} --build ${WORK}/cmake)
run(${WORK}/cmake/consumer)
message(STATUS "find_package: ${out}")

# 2. pkg-config, as the README's compile command.
set(ENV{PKG_CONFIG_PATH} ${pcdir})
run(pkg-config --cflags --libs orvaneSDK)
string(STRIP "${out}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CC} -std=c11 -Wall -Wextra -Werror -pedantic ${SOURCE}/tests/c_api/consumer.c ${flags} -o ${WORK}/consumer_pc)
set(ENV{LD_LIBRARY_PATH} ${libdir})
run(${WORK}/consumer_pc)
message(STATUS "pkg-config: ${out}")

if(TOOLS)
  if(NOT EXISTS ${prefix}/bin/orvane-replay)
    message(FATAL_ERROR "orvane-replay not installed")
  endif()
  run(${prefix}/bin/orvane-replay --version)
  message(STATUS "${out}")
endif()
