#include "testhost.h"
