// Code loaded at run time (dlopen): the daemon's optional exporters live in modules of
// their own, so that their libraries (gRPC, net-snmp's agent) cost no memory unless they
// are enabled. A module is found by its bare file name along the program's run path (the
// program's own directory in the build tree, the package's library directory once
// installed) and resolves the framework, records and model it uses from the program,
// which exports them. Modules stay loaded until the process ends: their libraries keep
// threads and exit handlers.
#pragma once

#include <string>

namespace Vel {

// What a module makes and the program owns: deleting it runs the module's destructor.
class ModuleObject {
public:
   virtual ~ModuleObject() = default;
};

// The function `symbol` of module `file`, loaded with every reference resolved now; null
// with the loader's reason in `error` when the file or the function is missing or the
// module does not fit this program.
void* moduleFunction(const std::string& file, const char* symbol, std::string* error);

template <class F>
F* moduleFunction(const std::string& file, const char* symbol, std::string* error) {
   return reinterpret_cast<F*>(moduleFunction(file, symbol, error));
}

}  // namespace Vel
