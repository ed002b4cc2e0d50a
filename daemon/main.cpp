// The quen daemon's entry point.
#include <vector>

#include "core/soh_startup.h"
#include "daemon/quen_cli.h"
#include "daemon/soh_declare.h"
#include "service/soh_service.h"

int main(int argc, char** argv) {
    std::vector<char*> args;
    const int status = QuenCommandLine(argc, argv, args);
    if (status >= 0) {
        return status;
    }
    SohDeclarations declarations;
    declarations.declareEstimators = DeclearEstimators;
    declarations.declareProtectors = DeclearProtectors;
    declarations.startService = SohService::Start;
    return SohMain(static_cast<int>(args.size()) - 1, args.data(), declarations);
}
