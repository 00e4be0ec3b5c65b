#include "HTMessages.h"

// No catalogue is read yet, so every text is its built-in English one.
const char *nlsGetString(int /*set*/, int /*key*/, int /*index*/, const char *fallback)
{
    return fallback;
}
