# What makes a fault harder to use: bounds of the C library's calls, stack and return addresses, a program that lies
# anywhere, tables that nobody writes to after the start. Which of the flags there are is asked of the compiler.

include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

set(hardening_flags -fstack-protector-strong -fstack-clash-protection)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i.86)$")
  list(APPEND hardening_flags -fcf-protection)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  list(APPEND hardening_flags -mbranch-protection=standard)
endif()
foreach(flag ${hardening_flags})
  string(MAKE_C_IDENTIFIER "SAVERESTORE_HAS${flag}" known)
  set(CMAKE_REQUIRED_FLAGS -Werror)
  check_cxx_compiler_flag(${flag} ${known})
  unset(CMAKE_REQUIRED_FLAGS)
  if(${known})
    add_compile_options(${flag})
  endif()
endforeach()

# Without optimisation the C library only warns that it does nothing.
add_compile_options($<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE$<SEMICOLON>-D_FORTIFY_SOURCE=3>)
add_link_options(LINKER:-z,relro,-z,now,-z,noexecstack)
