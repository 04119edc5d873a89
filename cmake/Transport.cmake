# The one place that decides what a program's HID calls reach. gIIVela is compiled once and calls
# hidapi's C functions; an executable links exactly one of
#
#   vela::transport-hidapi    the distribution's hidapi: real pads
#   vela::transport-virtual   the hidapi face of virtualpads/: pads in software
#
# after gIIVela.

# Linux has two of the former.

set(VELA_HIDAPI_BACKEND hidraw CACHE STRING
    "How hidapi reaches the pads on Linux: hidraw (through the kernel's HID nodes) or libusb")
set_property(CACHE VELA_HIDAPI_BACKEND PROPERTY STRINGS hidraw libusb)
if(NOT VELA_HIDAPI_BACKEND MATCHES "^(hidraw|libusb)$")
  message(FATAL_ERROR "VELA_HIDAPI_BACKEND is ${VELA_HIDAPI_BACKEND}; it must be hidraw or libusb")
endif()
if(APPLE)
  set(VELA_HIDAPI_MODULE hidapi)
else()
  set(VELA_HIDAPI_MODULE hidapi-${VELA_HIDAPI_BACKEND})
endif()

if(VELA_APPLICATION)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(HIDAPI REQUIRED IMPORTED_TARGET ${VELA_HIDAPI_MODULE})

  add_library(vela_transport_hidapi INTERFACE)
  add_library(vela::transport-hidapi ALIAS vela_transport_hidapi)
  target_link_libraries(vela_transport_hidapi INTERFACE PkgConfig::HIDAPI)
else()
  find_path(HIDAPI_INCLUDE_DIRS hidapi.h PATH_SUFFIXES hidapi REQUIRED)
endif()

add_library(vela_hidapi_headers INTERFACE)
target_include_directories(vela_hidapi_headers SYSTEM INTERFACE ${HIDAPI_INCLUDE_DIRS})

add_library(vela_transport_virtual INTERFACE)
add_library(vela::transport-virtual ALIAS vela_transport_virtual)
target_link_libraries(vela_transport_virtual INTERFACE virtualpads_hidapi)
