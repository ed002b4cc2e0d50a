// The quen daemon's entry point.
#include "core/soh_startup.h"
#include "daemon/soh_declare.h"
#include "service/soh_service.h"

int main(int argc, char** argv) {
    SohDeclarations declarations;
    declarations.declareEstimators = DeclearEstimators;
    declarations.declareProtectors = DeclearProtectors;
    declarations.startService = SohService::Start;
    return SohMain(argc, argv, declarations);
}
