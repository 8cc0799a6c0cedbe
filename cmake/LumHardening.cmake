# What makes a fault harder to use, for every library and program. testing/hardening/check-hardening
# tells whether it has reached the files.

include(CheckPIESupported)
check_pie_supported()  # position-independent programs: CMAKE_POSITION_INDEPENDENT_CODE

add_compile_options(-fstack-protector-strong)
add_link_options(LINKER:-z,relro,-z,now LINKER:-z,noexecstack)
# The checked string and memory functions of the C library exist in optimised code only.
add_compile_options(
  "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3>")
# Indirect jumps land on marked instructions only.
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
  add_compile_options(-fcf-protection=full)
elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
  add_compile_options(-mbranch-protection=standard)
endif()
