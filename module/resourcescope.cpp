#include "module.h"

namespace Kora::DgnCommands {

ModuleState& moduleState()
{
    static ModuleState state;
    return state;
}

}  // namespace Kora::DgnCommands

ResourceScope::ResourceScope() : m_saved(koraCurrentResourceHandle())
{
    const Kora::DgnCommands::ModuleState& state = Kora::DgnCommands::moduleState();
    koraSetResourceHandle(state.resourceInstance ? state.resourceInstance : state.moduleInstance);
}

ResourceScope::~ResourceScope() { koraSetResourceHandle(m_saved); }

KoString loadLocalString(unsigned id, const wchar_t* fallback)
{
    KoString text;
    const KoInstanceHandle previous = koraSetResourceHandle(Kora::DgnCommands::moduleState().resourceInstance);
    koraLoadString(id, text);
    // A null source before the switch is left as the switch made it.
    if (previous) koraSetResourceHandle(previous);
    if (text.isEmpty() && fallback && *fallback) text = fallback;
    return text;
}
