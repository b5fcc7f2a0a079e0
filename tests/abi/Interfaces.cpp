#include <Kiln/ActivityLock.h>

// What the platform calls and hosts implement, beside Shim::Sdk. Only described, never used.
namespace Interfaces {

__attribute__( ( visibility( "default" ) ) ) Kiln::InterpreterLock * interpreterLock = nullptr;

} // namespace Interfaces
