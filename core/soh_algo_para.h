// Typed numeric tuning values from an estimator's configuration.
//
// SohMetaPara turns one JSON object into a table of numbers keyed by member name; each entry
// keeps the narrowest of three types that jsoncpp reports for it: int (isInt), else long long
// (isInt64), else double (any other numeric). Strings, booleans, arrays, objects and null
// members are left out. A table is immutable once built.
//
// SohAlgoPara keeps several tables by group name. It owns its tables until GetOutParas hands
// one to the caller.
//
// Threads: a SohMetaPara is not locked; share it read-only or not at all. SohAlgoPara may be
// used from several threads: groupLock_ guards groups_ (shared for lookups and logging,
// exclusive for AddConfig, GetOutParas and Clear).
#pragma once

#include <json/json.h>

#include <cstddef>
#include <map>
#include <memory>
#include <shared_mutex>
#include <string>
#include <variant>

class SohMetaPara {
public:
    // Builds the table from the members of `obj`; anything but an object gives an empty table.
    explicit SohMetaPara(const Json::Value& obj);

    // True, with `out` set, only when `key` exists and holds an int; a long long or double
    // entry under that key gives false and leaves `out` alone.
    bool GetPara(const std::string& key, int& out) const;
    size_t size() const { return entries_.size(); }
    // Logs every entry at info level as "<prefix><key>: <value>", in key order. `name` is the
    // group the caller knows the table by; the lines carry only the prefix and the key.
    void Print2Log(const std::string& name, const std::string& prefix) const;

private:
    // The alternative held is the entry's type tag: int, long long or double.
    using Entry = std::variant<int, long long, double>;
    std::map<std::string, Entry> entries_;
};

class SohAlgoPara {
public:
    // Adds every member of `cfg` that is an object, as a group named after the member, unless
    // a group of that name exists already (the first definition wins) or the member holds no
    // numeric value. `cfg` that is not an object is logged and adds nothing. `name` is the
    // configuration the groups come from (the owning estimator); it does not name a group.
    void AddConfig(const Json::Value& cfg, const std::string& name);

    // Looks `key` up in group `name`; true with `out` set only for an int entry.
    bool GetPara(const std::string& name, const std::string& key, int& out) const;
    // As the int form, but a negative value gives false (and `out` is left alone).
    bool GetPara(const std::string& name, const std::string& key, unsigned& out) const;

    // Removes group `name` and hands it to the caller; an absent group gives a new, empty
    // table. Never null.
    std::unique_ptr<SohMetaPara> GetOutParas(const std::string& name);
    // Removes group `name` (nothing happens when it is absent).
    void Clear(const std::string& name);

    // Logs "<name>:" and then the group's entries at info level; nothing for an absent group.
    void Print2Log(const std::string& name, const std::string& prefix) const;

private:
    mutable std::shared_mutex groupLock_;                         // guards groups_
    std::map<std::string, std::unique_ptr<SohMetaPara>> groups_;  // never holds null
};
