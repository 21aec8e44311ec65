#pragma once

#include <Security/Authorization.h>
