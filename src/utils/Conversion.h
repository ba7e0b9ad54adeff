// The declarations are part of the public headers.
#pragma once

#include <onlineservices/framework/Conversion.h>
