// Dynamic libraries.

#include "platform/Crash.h"
#include "platform/ErrorCode.h"

#include <dlfcn.h>

namespace platform {

void* loadLibrary(const char* name)
{
    void* const module = dlopen(name, RTLD_NOW);
    if (!module)
        setLastError(ERROR_MOD_NOT_FOUND);
    return module;
}

void* getProcAddress(void* module, const char* name)
{
    // A null handle would stand for the whole process.
    void* const address = module ? dlsym(module, name) : nullptr;
    if (!address)
        setLastError(ERROR_PROC_NOT_FOUND);
    return address;
}

}  // namespace platform
