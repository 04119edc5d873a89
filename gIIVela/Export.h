// Marks what the shared library shows. Everything else in it is hidden.
#ifndef GIIVELA_EXPORT_H
#define GIIVELA_EXPORT_H

#define GIIVELA_API __attribute__((visibility("default")))

#endif
