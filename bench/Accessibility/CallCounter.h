#pragma once

// D-Bus calls that this process sent so far, by whatever library.
unsigned long CountedCalls();
