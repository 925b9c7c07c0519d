#include "platform/DynLoad.h"

#include <dlfcn.h>

#include <cstdlib>
#include <vector>

#include "platform/KelString.h"
#include "platform/Trace.h"

namespace {

std::string SelfFolder() {
    Dl_info info;
    if (dladdr(reinterpret_cast<void*>(&MapModuleName), &info) == 0 || info.dli_fname == nullptr)
        return std::string();
    const std::string path = info.dli_fname;
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

std::vector<std::string> SearchFolders() {
    std::vector<std::string> folders;
    if (const char* env = std::getenv("KELSCAN_PLUGIN_PATH")) {
        std::string all = env;
        std::size_t start = 0;
        while (start <= all.size()) {
            const std::size_t colon = all.find(':', start);
            const std::string part =
                all.substr(start, colon == std::string::npos ? std::string::npos : colon - start);
            if (!part.empty()) folders.push_back(part);
            if (colon == std::string::npos) break;
            start = colon + 1;
        }
    }
    const std::string self = SelfFolder();
    if (!self.empty()) folders.push_back(self);
#if defined(KELSCAN_INSTALL_MODULE_DIR)
    if (self != KELSCAN_INSTALL_MODULE_DIR) folders.push_back(KELSCAN_INSTALL_MODULE_DIR);
#endif
    return folders;
}

}  // namespace

std::string MapModuleName(const wchar_t* moduleName) {
    std::string name = kel_text::WideToUtf8(moduleName != nullptr ? moduleName : L"");
    if (name.size() > 4) {
        std::string ext = name.substr(name.size() - 4);
        for (char& c : ext) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
        if (ext == ".dll") name.resize(name.size() - 4);
    }
#if defined(__APPLE__)
    return "lib" + name + ".dylib";
#else
    return "lib" + name + ".so";
#endif
}

void* GetLibraryFunction(const wchar_t* moduleName, const char* functionName, HMODULE* module) {
    if (moduleName == nullptr || functionName == nullptr || module == nullptr) {
        KEL_TRACE_ALWAYS(L"GetLibraryFunction moduleName == NULL || functionName == NULL || module == NULL");
        return nullptr;
    }
    void* handle = *module;
    bool loadedHere = false;
    if (handle == nullptr) {
        const std::string file = MapModuleName(moduleName);
        for (const std::string& folder : SearchFolders()) {
            handle = dlopen((folder + "/" + file).c_str(), RTLD_NOW | RTLD_LOCAL);
            if (handle != nullptr) break;
        }
        if (handle == nullptr) handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr) {
            KEL_TRACE_ALWAYS(L"GetLibraryFunction module not found: %s", moduleName);
            return nullptr;
        }
        loadedHere = true;
    }
    void* fn = dlsym(handle, functionName);
    if (fn == nullptr) {
        KEL_TRACE_ALWAYS(L"GetLibraryFunction entry point not found: %S", functionName);
        if (loadedHere) dlclose(handle);
        return nullptr;
    }
    *module = handle;
    return fn;
}

void FreeLibraryFunction(HMODULE module) {
    if (module != nullptr) dlclose(module);
}
