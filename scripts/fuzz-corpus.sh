#!/usr/bin/env bash
# Writes the seed corpora of the fuzz targets (scripts/fuzz-corpus.sh) into fuzz/corpus/<target>/: the sample device's
# files and small hand-made valid records (and a few near misses). The files are kept in the
# repository; run this again only to regenerate them after a record format changed.
#
# Needs only bash, coreutils and protoc (the build's protobuf compiler). Binary records are
# little-endian, as on every supported device.
set -euo pipefail
cd "$(dirname "$0")/.."
out=fuzz/corpus
sample=examples/device/odm/etc/power

# ---- byte helpers -----------------------------------------------------------------------------

# le VALUE BYTES: VALUE as BYTES little-endian bytes (two's complement for negatives).
le() {
  local v=$1 n=$2 i
  for ((i = 0; i < n; i++)); do
    printf "\\x$(printf %02x $(((v >> (8 * i)) & 255)))"
  done
}
u8() { le "$1" 1; }
u16() { le "$1" 2; }
u32() { le "$1" 4; }
i64() { le "$1" 8; }
# zeros N
zeros() { head -c "$1" /dev/zero; }
# text TEXT SIZE: TEXT padded with NULs to SIZE bytes.
text() {
  printf '%s' "$1"
  zeros $(($2 - ${#1}))
}
# hex2bin HEX
hex2bin() {
  local h=$1 i
  for ((i = 0; i < ${#h}; i += 2)); do printf "\\x${h:i:2}"; done
}
# Parcel strings: String8 is length, bytes, NUL, padding to 4; String16 likewise in UTF-16
# units (ASCII only here).
s8() {
  local s=$1
  u32 ${#s}
  printf '%s' "$s"
  zeros $((4 - ${#s} % 4))
}
s16() {
  local s=$1 i
  u32 ${#s}
  for ((i = 0; i < ${#s}; i++)); do
    u16 "$(printf %d "'${s:i:1}")"
  done
  zeros $(((${#s} + 1) * 2 % 4 == 0 ? 2 : 4))
}
# encode MESSAGE PROTO: protobuf text on stdin to its binary form.
encode() { protoc --proto_path=protos --encode="$1" "$2"; }

# ---- configuration ----------------------------------------------------------------------------

mkdir -p "$out"/{version,config,section,asw_config}
cp "$sample/version.txt" "$out/version/sample.txt"
printf 'version=2.0.0.3\r\ntype=QUENJSONCONFIG\r\nsubtype=generic\r\ncompatibleVersion=1\r\n' \
  >"$out/version/newer_crlf.txt"
printf 'version=1.10\ntype=QUENJSONCONFIG\nsubtype=generic\ncompatibleVersion=1\n' \
  >"$out/version/short_version.txt"
printf 'type=other\nversion=1.0.0.0\n=x\nnoequals\n' >"$out/version/wrong_tags.txt"

cp "$sample/quen.json" "$out/config/sample.json"
cat >"$out/config/minimal.json" <<'EOF'
{"Estimators": {"APP": {"Protectors": ["DcCurLimitator", "SocLimitator"]},
 "EIS": {"Common": {"Monitors": {"m": {"/sys/devices/platform/vorlan_batt_soh/eis/dcr_info": 1}},
                    "Parameters": {"Recorder": {"versionRecorder": 1000, "rawSizeRecorder": 1,
                                                "setSizeRecorder": 1}}}}}}
EOF

# Sections: one byte picks the estimator (0 BASP, 1 CVT, 2 EIS, 3 APP), the JSON follows.
{
  u8 0
  cat <<'EOF'
{"Protectors": ["DcVoltLimitator", "NonDcCurLimitator"],
 "Battery": [{"Name": "QBT41", "Model": "QBT41", "IChargerMax": 6000, "NdcVtermGradeUV": 2000,
              "SwellCycleTh": 300, "BaspPolicy": "2.0", "ndcDefautStep": 10,
              "ndcVtermSteps": [10, 16]}],
 "2.0": [{"Level": 1, "Cycles": 500, "FccRatio": 90, "Logical": 1, "DcVoltDec": 10,
          "NonDcVoltDec": [10, 16], "CurrentRatio": 90, "CurrentPolicy": 0, "ErrNo": 1,
          "CurrentRefer": 1},
         {"Level": 2, "WeekAswell": 20, "Cycles": 800, "FccRatio": 85, "Logical": 3,
          "DcVoltDec": 20, "NonDcVoltDec": [20, 32], "CurrentRatio": 80, "CurrentPolicy": 0,
          "ErrNo": 2, "CurrentRefer": 0}]}
EOF
} >"$out/section/basp.bin"
{
  u8 1
  cat <<'EOF'
{"Battery": [{"Name": "QBT41", "Model": "all", "ChargeCycleMax": 50, "ChargeSocMin": 60,
              "ChargeBeginSoc": 90, "ValidTempMin": -10, "ValidTempMax": 45,
              "ValidValueMin": 300, "ValidValueMax": 7200,
              "TempRecoup": {"Temp": [10, 25, 40], "Ratio": [115, 100, 90]},
              "JudgeEnable": 1, "PolicyEnable": 0, "CalculateCount": 1, "ErrorCount": 1,
              "ErrorValue": 2000, "ErrorCycle": 0, "FccRatio": 100}]}
EOF
} >"$out/section/cvt.bin"
{
  u8 2
  cat <<'EOF'
{"Monitors": {"acr": {"/sys/devices/platform/vorlan_batt_soh/eis/acr_info": 0},
              "dcr": {"/sys/devices/platform/vorlan_batt_soh/eis/dcr_info": 1}},
 "Parameters": {"Recorder": {"versionRecorder": 1001, "rawSizeRecorder": 64,
                             "setSizeRecorder": 8},
                "Unifier0": {"type": 0}, "Judge1": {"type": 2, "limit": 3000000000}}}
EOF
} >"$out/section/eis.bin"
{
  u8 3
  printf '%s\n' '{"Protectors": ["DcCurLimitator", "SocLimitator", "STOP_CHARGE", "Nope"],' \
    ' "Common": {"Group": {"a": 1, "b": -2, "c": 5000000000, "d": 0.5, "e": "x"}}}'
} >"$out/section/app.bin"

cat >"$out/asw_config/scenes.json" <<'EOF'
{"Battery": [{"Name": "FZ1", "AswPolicy": "2.0", "SwellTabe": "T", "SimSupport": 0,
              "NormalSceneDmdNo": 7}],
 "T": {"Vbat": [4300], "Temp": [30], "Table": [[0.001, 0.01], [0.002, 0.02]]},
 "2.0": [{"Name": "S", "No": 1, "DmdNo": 8, "CutoffSoc": 85, "RestoreSoc": 80,
          "VbatLlimit": 4300, "TbatLlimit": 35,
          "Condtion": [{"GroupNo": 1, "EntryObjType": 0, "ExitObjType": 1, "ProtectEnable": 1,
                        "Entry": {"Pusb_in": [50, 100], "Sim": 1},
                        "Exit": [{"Aswell": [0, 0.5]}]}]}]}
EOF
{
  printf '{'
  sed -n '/"ASW": {/,/^    "BASP"/p' "$sample/quen.json" | sed '1d;$d' | sed '$d'
  printf '}\n'
} >"$out/asw_config/sample.json"

# ---- persistent records -----------------------------------------------------------------------

mkdir -p "$out"/{sys_para,basp_db,asw_data,eis_hist,cvt_record}
encode SysPara sys_para.proto >"$out/sys_para/limits.dat" <<'EOF'
version: "1.0"
asw { protect: 1 }
schemes { name: "CFSD" switch: 0 }
records { name: "DcCurLimitator" src: "APP" value: "90" }
records { name: "NonDcVoltLimitator" src: "BASP" value: "16" }
records { name: "SocLimitator" src: "APP" value: "1 75 80 1 0" }
records { name: "StatusLimitator" src: "ISCD" value: "x1" }
EOF
encode SysPara sys_para.proto >"$out/sys_para/old_version.dat" <<'EOF'
version: "0.9"
schemes { name: "ASW" }
EOF

encode BaspDb basp_db.proto >"$out/basp_db/three_fccs.dat" <<'EOF'
version: "2.0"
level: 2
timestamp: 1699000000
stages { level: 1 seconds: 864000 }
stages { level: 2 seconds: 172800 }
mnum: 5
pos: 3
records { fcc: 4200 timestamp: 1690000000 }
records { fcc: 4150 timestamp: 1693000000 }
records { fcc: 4100 timestamp: 1696000000 }
RealPolicyRecs { timestamp: 1699900000 ndcVdecUV: 20000 noDecAswell: 10 }
EOF
encode BaspDb basp_db.proto >"$out/basp_db/full_ring.dat" <<'EOF'
version: "2.0"
level: 4
timestamp: 1699990000
mnum: 5
pos: 2
records { fcc: 3500 timestamp: 1698000000 }
records { fcc: 3450 timestamp: 1699000000 }
records { fcc: 3700 timestamp: 1695000000 }
records { fcc: 3650 timestamp: 1696000000 }
records { fcc: 3600 timestamp: 1697000000 }
RealPolicyRecs { timestamp: 1699000000 ndcVdecUV: 64000 noDecAswell: 39 }
EOF

# ASW: one byte picks the file (0 data file, 1 legacy log), the content follows.
asw_day() { # START SECONDS: one day with SECONDS in one warm, high-voltage bin
  printf '{"Tstart":%d,"Tend":%d,"Tstat":%d,"Tusb_in":%d,"Tsim_in":%d,"Sim":1,' \
    "$1" $(($1 + $2)) "$2" $(($2 * 8 / 10)) "$2"
  printf '"CycStart":140,"CycEnd":143,"SwellTimes":[[0,0,0,0,0,0],[0,0,0,0,%d,0],' "$2"
  printf '[0,0,0,0,0,0],[0,0,0,0,0,0],[0,0,0,0,0,0]]}'
}
asw_file() { # CLOSED_DAYS
  local today=1700002740 i
  printf '{"AswPolicy":"3.1","Vbat":[4100,4200,4300,4400,4450],"Temp":[25,35,40,45],'
  printf '"Scene":1,"ConditonGroupNo":1,"TReport":1699000000,'
  printf '"Addup":{"Tstart":1690000000,"Tstat":9000000,"Tusb_in":6000000,"Sim":1,'
  printf '"OldAswell":0.25},"Day":['
  for ((i = $1; i > 0; i--)); do
    asw_day $((today - i * 86400)) 86399
    printf ','
  done
  asw_day "$today" 3600
  printf ']}\n'
}
{ u8 0; asw_file 7; } >"$out/asw_data/week.json.bin"
{ u8 0; asw_file 1; } >"$out/asw_data/two_days.json.bin"
{
  u8 1
  zeros 76
  for ((i = 0; i < 36; i++)); do u32 $((i * 3600)); done
  zeros $((416 - 76 - 144))
} >"$out/asw_data/legacy_log.bin"

# EIS history, sealed: SHA-256 of the record without its hash, kept up to the digest's first
# zero byte, appended as field 7 (tag 0x3a).
eis_history() { # TEXT_FILE OUT
  local body hex i
  body=$(mktemp)
  encode Eis.HistoryData eisdata.proto <"$1" >"$body"
  hex=$(sha256sum "$body" | cut -c1-64)
  for ((i = 0; i < 64; i += 2)); do
    if [ "${hex:i:2}" = 00 ]; then hex=${hex:0:i}; break; fi
  done
  { cat "$body"; printf '\x3a'; u8 $((${#hex} / 2)); hex2bin "$hex"; } >"$2"
  rm -f "$body"
}
hist_text=$(mktemp)
cat >"$hist_text" <<'EOF'
version: 1000
name: "QBT41"
type: "acr"
raw { cycles: 100 freq: 1000 temp: 298150 magnitude: 310 real: 0 image: 0 phase: 0 }
raw { cycles: 140 freq: 0 temp: 300150 magnitude: 95 }
uniSet { freq: 1000 temp: 298150 points { cycles: 100 magnitude: 310 } points { cycles: 140 } }
date: "2023-11-14 10:00:00"
EOF
eis_history "$hist_text" "$out/eis_hist/sealed.dat"
encode Eis.HistoryData eisdata.proto <"$hist_text" >"$out/eis_hist/unsealed.dat"
rm -f "$hist_text"

# CVT record: swell flag, count, magic, brand, then the five rings of 200 slots.
cvt_record() { # COUNT MAGIC
  local count=$1 i
  u16 0
  u16 "$count"
  u32 "$2"
  text "QBT41" 32
  for ((i = 0; i < 200; i++)); do u16 $((i < count ? 1800 + i : 0)); done
  for ((i = 0; i < 200; i++)); do u16 $((i < count ? 1500 + 40 * (i % 20) : 0)); done
  for ((i = 0; i < 200; i++)); do u16 $((i < count ? 100 + i : 0)); done
  for ((i = 0; i < 200; i++)); do u16 $((i < count ? 25 - i % 50 : 0)); done
  for ((i = 0; i < 200; i++)); do i64 $((i < count ? 1690000000 + 86400 * i : 0)); done
}
cvt_record 12 $((0x3C5A7711)) >"$out/cvt_record/twelve.dat"
cvt_record 205 $((0x3C5A7711)) >"$out/cvt_record/wrapped.dat"
cvt_record 3 $((0x12345678)) >"$out/cvt_record/bad_magic.dat"

# ---- kernel records: one byte picks the node, the record follows -----------------------------

mkdir -p "$out/kernel_record"
{ u8 0; u32 4500; u32 900; u32 4; u32 4100; u32 4050; u32 4000; u32 3950; u32 0; } \
  >"$out/kernel_record/aging.bin"
{ u8 0; u32 4500; u32 10; u32 9; u32 4400; u32 4390; u32 4380; u32 4370; u32 4360; } \
  >"$out/kernel_record/aging_count_too_big.bin"
{
  u8 1
  u32 4500; u32 0; u32 612; u32 0; u32 4480
  text "SUNW-QBT41" 32
  text "QBT41-02" 36
} >"$out/kernel_record/herald.bin"
{ u8 2; u32 310; u32 143; u32 27; u32 41; u32 30; u32 4200; } >"$out/kernel_record/acr.bin"
{ u8 3; u32 120; u32 95; u32 143; u32 27; u32 4150; } >"$out/kernel_record/dcr.bin"

# ---- control service --------------------------------------------------------------------------

mkdir -p "$out"/{transport,service,app_para}
magic=$((0x51424e31))
dump=$((0x5f444d50)) # '_DMP'
request() { # CODE FLAGS PAYLOAD_FILE
  u32 $magic; u32 "$1"; u32 "$2"; u32 "$(wc -c <"$3")"; cat "$3"
}
p=$(mktemp)
{ u8 0; s8 vnupd_config >"$p"; request 1 0 "$p"; s8 smart_charging >"$p"; request 1 0 "$p"; } \
  >"$out/transport/two_gets.bin"
{ u8 0; { s8 ichg_limit; s8 "all 1500"; } >"$p"; request 2 1 "$p"; request 2 0 "$p"; } \
  >"$out/transport/set_oneway_then_set.bin"
{ u8 1; { u32 1; s16 --json; } >"$p"; request $dump 0 "$p"; } >"$out/transport/dump_json.bin"
{ u8 0; : >"$p"; request $((0x5f504e47)) 0 "$p"; u32 0; u32 1; } >"$out/transport/ping_then_bad.bin"

{ u8 0; s8 vnupd_config; } >"$out/service/get.bin"
{ u8 1; s8 soc_control; s8 "1 80 70"; } >"$out/service/set.bin"
{ u8 $((0x42)); u32 2; s16 --json; s16 -a; } >"$out/service/dump.bin"
{ u8 3; } >"$out/service/interface.bin"
{ u8 7; u32 $((0x00ffffff)); s8 x; } >"$out/service/unknown_code.bin"
rm -f "$p"

# App parameters: the first byte picks owner and name (see app_para_fuzz.cpp).
app() { u8 "$1"; printf '%s' "$2"; }
app 5 "1 80 70" >"$out/app_para/soc_control.bin"
app 5 "1 100 95 1 0" >"$out/app_para/soc_control_five.bin"
app 6 "all 100" >"$out/app_para/vterm_dec.bin"
app 7 "all 1500" >"$out/app_para/ichg_limit.bin"
app 8 "all 90" >"$out/app_para/ichg_ratio.bin"
app 11 $'3 1\n' >"$out/app_para/batt_status.bin"
app 2 "1" >"$out/app_para/smart_charge_enable.bin"
app 9 "CFSD" >"$out/app_para/close_scheme.bin"
app $((0x84)) "0.25" >"$out/app_para/asw_aswell_add.bin"
app $((0x82)) "1" >"$out/app_para/asw_smart_charge_enable.bin"
{ u8 12; printf 'unknown'; u8 0; printf '1'; } >"$out/app_para/unknown_name.bin"

echo "seed corpora written to $out"
