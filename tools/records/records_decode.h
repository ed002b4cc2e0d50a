// Decoders of the daemon's persistent records, one per kind. Each takes the whole file's bytes
// and fills `r` (kind, ok, error, notes, data; the caller sets the path). None of them throws
// or reads past the bytes it was given, whatever they hold.
//
//   sys_para.dat    SysPara (protocol buffers): protect mark, closed schemes, limit records
//   basp_<b>.dat    BaspDb (protocol buffers): current level, run time per level, the FCC ring
//                   in age order with the time each value was first seen, decrement state
//   asw_<b>.dat     the anti-swelling data file (JSON): scene, history, closed days, today and
//                   the week; swell values when the configured swell table is given
//   cvtnew.data     CvtInfoSave (3240 bytes): the ring of constant-voltage times, newest first
//   acr.dat/dcr.dat fixed-size impedance records (212 / 156 bytes), oldest first
//   eis             Eis::HistoryData (protocol buffers) with the verdict on its SHA-256 hash
#pragma once

#include <json/json.h>

#include <string>

#include "tools/records/records_record.h"

void DecodeSysPara(const std::string& bytes, InspectedRecord& r);
// `battery` is the name taken from the file name.
void DecodeBasp(const std::string& bytes, const std::string& battery, InspectedRecord& r);
// `swellTable` is the configured table of this battery ({"Vbat", "Temp", "Table"}) or null;
// `tableSource` says where it came from (shown in the notes).
void DecodeAsw(const std::string& bytes, const std::string& battery, const Json::Value& swellTable,
               const std::string& tableSource, InspectedRecord& r);
void DecodeCvt(const std::string& bytes, InspectedRecord& r);
void DecodeAcrLog(const std::string& bytes, InspectedRecord& r);
void DecodeDcrLog(const std::string& bytes, InspectedRecord& r);
void DecodeEisHistory(const std::string& bytes, InspectedRecord& r);
