# Everything that the build makes from packaging/pads.list: PadList.h for the tools and the demonstration (link
# vela::pad-list), and variables for the files of packaging/.

set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS packaging/pads.list)
file(STRINGS packaging/pads.list rows REGEX "^[0-9A-F]")
set(VELA_PAD_ROWS "")
set(VELA_PAD_NAMES "")
set(VELA_PAD_TABLE "")
set(VELA_MODALIASES "")
set(VELA_UDEV_RULES "")
foreach(row IN LISTS rows)
  if(NOT row MATCHES "^([0-9A-F]+) ([0-9A-F]+) ([a-z]+) (.+)$")
    message(FATAL_ERROR "packaging/pads.list: not the row of a pad: ${row}")
  endif()
  set(product ${CMAKE_MATCH_1})
  set(name ${CMAKE_MATCH_4})
  string(TOLOWER ${product} lower)
  string(APPEND VELA_PAD_ROWS
    "    {0x${product}, \"${CMAKE_MATCH_2}\", \"${CMAKE_MATCH_3}\", \"${name}\"},\n")
  list(APPEND VELA_PAD_NAMES ${name})
  string(APPEND VELA_PAD_TABLE "${CMAKE_MATCH_3}\t${name}, 04df:${lower}\n")
  string(APPEND VELA_MODALIASES "    <modalias>usb:v04DFp${product}d*</modalias>\n")
  string(APPEND VELA_UDEV_RULES "\n# ${name}\n"
    "SUBSYSTEM==\"hidraw\", KERNELS==\"0003:04DF:${product}.*\", TAG+=\"uaccess\"\n")
  if(VELA_HIDAPI_BACKEND STREQUAL "libusb")
    # libusb opens the USB device; the tools look at the HID node.
    string(APPEND VELA_UDEV_RULES "SUBSYSTEM==\"usb\", ATTR{idVendor}==\"04df\", "
      "ATTR{idProduct}==\"${lower}\", TAG+=\"uaccess\"\n")
  endif()
endforeach()
list(JOIN VELA_PAD_NAMES ", " VELA_PAD_NAMES)

set(generated ${PROJECT_BINARY_DIR}/pad-list)
file(CONFIGURE OUTPUT ${generated}/PadList.h @ONLY CONTENT
"// Made from packaging/pads.list.
#ifndef PADLIST_H
#define PADLIST_H

struct ListedPad {
  unsigned product;
  const char* classId;
  const char* word;  // on the command line of vela-virtual-pad
  const char* name;
};

// In the order of the facade's providers and of virtualpads::PadKind.
inline constexpr ListedPad kPadList[] = {
@VELA_PAD_ROWS@};

#endif
")
add_library(vela_pad_list INTERFACE)
add_library(vela::pad-list ALIAS vela_pad_list)
target_include_directories(vela_pad_list INTERFACE ${generated})
