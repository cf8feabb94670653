// Virtual-machine contexts and sessions for hosts: the exported entry to
// the per-context slot store.
#include "kt/vmcontext.h"

#include <new>

#include "internal/slot_store.h"

using kt::internal::VmContext;

// The public handle names the internal context; kt_vm_context itself is
// never defined.
namespace {

kt_vm_context* AsHandle(VmContext* context) { return reinterpret_cast<kt_vm_context*>(context); }
VmContext* FromHandle(kt_vm_context* handle) { return reinterpret_cast<VmContext*>(handle); }

}  // namespace

extern "C" {

kt_vm_context* ktNewVmContext(void) { return AsHandle(new (std::nothrow) VmContext); }

int ktDeleteVmContext(kt_vm_context* handle) {
  VmContext* context = FromHandle(handle);
  if (context == nullptr)
    return 0;
  if (context->Entries() != 0)
    return -1;  // a thread is still inside: deleting would pull its state away
  context->EndSession();
  delete context;
  return 0;
}

int ktEnterVmContext(kt_vm_context* handle) {
  if (handle == nullptr)
    return -1;
  kt::internal::EnterVmContext(FromHandle(handle));
  return 0;
}

kt_vm_context* ktLeaveVmContext(void) {
  VmContext* left = kt::internal::CurrentVmContext();
  kt::internal::LeaveVmContext();
  return AsHandle(left);
}

kt_vm_context* ktGetCurrentVmContext(void) { return AsHandle(kt::internal::CurrentVmContext()); }

int ktIsVmContextActive(void) { return kt::internal::RequiredContextActive() ? 1 : 0; }

int ktStartVmSession(kt_vm_context* handle) {
  return handle != nullptr && FromHandle(handle)->StartSession() ? 0 : -1;
}

int ktEndVmSession(kt_vm_context* handle) {
  return handle != nullptr && FromHandle(handle)->EndSession() ? 0 : -1;
}

int ktIsVmSessionActive(void) { return kt::internal::CurrentSessionStore() != nullptr ? 1 : 0; }

}  // extern "C"
