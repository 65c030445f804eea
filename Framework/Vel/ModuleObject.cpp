#include "Framework/Vel/ModuleObject.h"

#include <dlfcn.h>

namespace Vel {

void* moduleFunction(const std::string& file, const char* symbol, std::string* error) {
   // Loaded once: a second call finds the same handle.
   void* handle = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
   if (!handle) {
      const char* why = ::dlerror();
      *error = why ? why : file + ": cannot be loaded";
      return nullptr;
   }
   ::dlerror();
   void* f = ::dlsym(handle, symbol);
   if (!f) {
      const char* why = ::dlerror();
      *error = why ? why : file + ": no " + symbol;
   }
   return f;
}

}  // namespace Vel
