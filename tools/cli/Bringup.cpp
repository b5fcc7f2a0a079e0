#include "tools/cli/Verbs.h"

namespace Tool {

int bringup( const BringupOptions & options ) {
    return Session( loadBringup( options.file ), options.session, Session::Style::steps ).run();
}

} // namespace Tool
