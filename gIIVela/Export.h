/// \file
/// Marks what the shared library exports. Everything else in it is hidden.
#ifndef GIIVELA_EXPORT_H
#define GIIVELA_EXPORT_H

#define GIIVELA_API __attribute__((visibility("default")))
// A private member of an exported class.
#define GIIVELA_LOCAL __attribute__((visibility("hidden")))

#endif
