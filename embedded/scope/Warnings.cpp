#include "embedded/scope/Scope.h"
#include "host/Messages.h"

void matrix::detail::noninlined::vx_array_api::vxWarningMsgId(const resource_core::BaseMsgID& id) {
    vantik::detail::Scope::current().Warnings.show(id);
}
