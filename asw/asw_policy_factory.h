// AswPolicyFactory: makes scenes and data objects of the anti-swelling estimator. The name
// argument selects nothing (there is one kind of each); it is kept for the callers' symmetry.
// Results are owned by the caller; null only when memory runs out.
//
// SelectScene: the scene selection run when a day has closed: only when the week holds at
// least six days of accounted time ("Tstat" >> 8 above 2024), every scene of the policy array
// is built and initialised afresh; the first in configuration order whose Entry holds and
// whose Exit then does not is returned (a scene meeting both is skipped, logged). Null when
// no scene applies, the week is too short, or any scene fails to build.
//
// Stateless; called on the ASW monitor thread.
#pragma once

#include <json/json.h>

#include <memory>
#include <string>

#include "asw/asw_data_object.h"
#include "asw/asw_scene.h"
#include "asw/asw_table.h"

class AswPolicyFactory {
public:
    // Week "Tstat" >> 8 must exceed this for a selection: 2025 * 256 s, six days.
    static constexpr unsigned kSelectMinStat = 2024;

    // A scene from its configuration, not yet initialised.
    static std::unique_ptr<AswScene> CreateSceneInstance(const std::string& name,
                                                         const Json::Value& config);
    // A zero time table on the axes, no data.
    static std::unique_ptr<AswDataObject> CreateDataInstance(const std::string& name,
                                                             const Json::Value& x,
                                                             const Json::Value& y);
    static std::unique_ptr<AswDataObject> CreateDataInstance(const std::string& name,
                                                             AswTable&& table, Json::Value&& data);
    // A zero time table on the axes, with the given data.
    static std::unique_ptr<AswDataObject> CreateDataInstance(const std::string& name,
                                                             const Json::Value& x,
                                                             const Json::Value& y,
                                                             Json::Value&& data);

    static std::unique_ptr<AswScene> SelectScene(const Json::Value& scenes, AswDataObject& week,
                                                 AswDataObject& addup);
};
