# How the service is built for a gateway: small, hardened, with the gateway's own libraries.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
target_compile_options(project_options INTERFACE -ffunction-sections -fdata-sections -fstack-protector-strong
  -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
target_link_options(project_options INTERFACE LINKER:--gc-sections LINKER:--as-needed LINKER:-z,relro LINKER:-z,now
  LINKER:-z,noexecstack)

# By default the link stubs stand for them.
set(FTM_CFG_LIBRARY cfg CACHE STRING "The configuration store's client library: a name or a path")
set(FTM_INI_LIBRARY ini CACHE STRING "The INI library: a name or a path")
add_library(gateway_libraries INTERFACE)
target_link_libraries(gateway_libraries INTERFACE ${FTM_CFG_LIBRARY} ${FTM_INI_LIBRARY})

set(GATEWAY_PROGRAM_LIMIT 153600) # bytes; flash is what a gateway is short of
