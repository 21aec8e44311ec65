#include <mach/mach_types.h>

typedef mach_port_t io_object_t;
typedef io_object_t io_iterator_t;
typedef io_object_t io_registry_entry_t;

#define IO_OBJECT_NULL ((io_object_t)0)
