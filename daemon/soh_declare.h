// The estimator and protector classes of this build, declared by name into the two registries
// (all seven estimators; protectors: the seven limitator keys).
// Called once by start-up on the main thread, before any estimator exists; tests call them the same
// way.
#pragma once

void DeclearEstimators();
void DeclearProtectors();
