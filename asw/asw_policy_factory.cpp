#include "asw/asw_policy_factory.h"

#include <new>
#include <vector>

#include "core/soh_log.h"

std::unique_ptr<AswScene> AswPolicyFactory::CreateSceneInstance(const std::string& /*name*/,
                                                                const Json::Value& config) {
    return std::unique_ptr<AswScene>(new (std::nothrow) AswScene(config));
}

std::unique_ptr<AswDataObject> AswPolicyFactory::CreateDataInstance(const std::string& name,
                                                                    const Json::Value& x,
                                                                    const Json::Value& y) {
    return CreateDataInstance(name, AswTable(x, y), Json::Value());
}

std::unique_ptr<AswDataObject> AswPolicyFactory::CreateDataInstance(const std::string& /*name*/,
                                                                    AswTable&& table,
                                                                    Json::Value&& data) {
    return std::unique_ptr<AswDataObject>(new (std::nothrow)
                                              AswDataObject(std::move(table), std::move(data)));
}

std::unique_ptr<AswDataObject> AswPolicyFactory::CreateDataInstance(const std::string& name,
                                                                    const Json::Value& x,
                                                                    const Json::Value& y,
                                                                    Json::Value&& data) {
    return CreateDataInstance(name, AswTable(x, y), std::move(data));
}

std::unique_ptr<AswScene> AswPolicyFactory::SelectScene(const Json::Value& scenes,
                                                        AswDataObject& week, AswDataObject& addup) {
    if ((week.GetStatSeconds() >> 8) <= kSelectMinStat || !scenes.isArray()) {
        return nullptr;
    }
    std::vector<std::unique_ptr<AswScene>> built;
    for (const Json::Value& config : scenes) {
        std::unique_ptr<AswScene> scene = CreateSceneInstance("AswScene", config);
        if (scene == nullptr) {
            SOH_LOGE("create scene instance failed\n");
            return nullptr;
        }
        if (scene->Init(config) != 0) {
            SOH_LOGE("scene instance init failed\n");
            return nullptr;
        }
        built.push_back(std::move(scene));
    }
    for (std::unique_ptr<AswScene>& scene : built) {
        if (!scene->Entry(week, addup)) {
            continue;
        }
        if (scene->Exit(week, addup)) {
            SOH_LOGE("asw scene %d meet the entry and exit conditions\n",
                     static_cast<int>(scene->GetNo()));
            continue;
        }
        return std::move(scene);
    }
    return nullptr;
}
