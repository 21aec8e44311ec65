#pragma once

#include <SecurityFoundation/SFAuthorization.h>
