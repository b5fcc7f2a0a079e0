#include "tools/cli/Verbs.h"
#include "tools/model/BringupFile.h"

namespace Tool {

int bringup( const BringupOptions & options ) {
    return runSession( loadBringup( options.file ), options.session, options.output );
}

} // namespace Tool
