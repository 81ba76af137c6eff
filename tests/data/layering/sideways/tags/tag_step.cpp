// A tag reader that reaches sideways into the stream layout: refused too.
#include "layout/container.h"
