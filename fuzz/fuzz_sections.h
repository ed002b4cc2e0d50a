// How the estimators consume their configuration sections, driven the way each estimator
// drives its own (the first battery that applies, then its records, stages or scenes) but
// without monitor threads, so that a fuzz target can hand any section to the real code.
//
// The estimators themselves read their section from the configuration loaded once per
// process; these helpers take the section as an argument instead and call the same
// per-battery, per-scene and per-group code the estimators call.
//
// Files a section makes the daemon create under its battery names are removed again, so that
// inputs do not pile up records on the device. Threads: the fuzzing thread only.
#pragma once

#include <json/json.h>

#include <string>

namespace FuzzSections {

// Kernel records every consumer may need (the impedance nodes); call once after
// FuzzDevice::Setup().
void Setup();

// "BASP": the battery list as BaspEstimator::InitBatterys walks it, then two aging records.
void Basp(const Json::Value& section);
// "ASW": the battery list as AswEstimator::InitBatterys walks it with two passes across a day
// boundary, then every array member as a scene list and every object member as a swell table.
void Asw(const Json::Value& section);
// "CVT": the battery list as CvtEstimator::InitCvt walks it, then a finished measurement.
void Cvt(const Json::Value& section);
// "EIS": monitors and parameters as the EIS constructor takes them, then one ACR and one DCR
// measurement.
void Eis(const Json::Value& section);
// What every estimator takes from its section: "Common" or the section itself, the protectors
// it names, and the numeric parameter groups.
void Common(const std::string& name, const Json::Value& section);
// Every member of an "Estimators" object, by name.
void All(const Json::Value& estimators);

}  // namespace FuzzSections
