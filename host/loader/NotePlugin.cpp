// Loading the plug-in and resolving its functions by their unmangled names.
#include "loader/NotePlugin.h"

#include <dlfcn.h>

#include <type_traits>

CNotePlugin::~CNotePlugin() { Unload(); }

std::string CNotePlugin::BuiltPath() { return NOTE_BUILT_PLUGIN_PATH; }

bool CNotePlugin::Load(const std::string& path, std::string& error)
{
    Unload();
    // Never unmapped: the plug-in's run-loop sources stay on the host's main context for the
    // thread's life, and they must not point into an unloaded file.
    m_pLibrary = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!m_pLibrary) {
        const char* reason = dlerror();
        error = reason ? reason : "cannot load " + path;
        return false;
    }
    bool complete = true;
    auto resolve = [&](auto& function, const char* name) {
        function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(
            dlsym(m_pLibrary, name));
        if (!function && complete) {
            complete = false;
            error = path + " lacks the function " + name;
        }
    };
#define NOTE_RESOLVE(name) resolve(name, #name);
    NOTE_PLUGIN_FUNCTIONS(NOTE_RESOLVE)
#undef NOTE_RESOLVE
    if (!complete) Unload();
    return complete;
}

void CNotePlugin::Unload()
{
    if (m_pLibrary) dlclose(m_pLibrary);
    m_pLibrary = nullptr;
#define NOTE_FORGET(name) name = nullptr;
    NOTE_PLUGIN_FUNCTIONS(NOTE_FORGET)
#undef NOTE_FORGET
}
