#!/usr/bin/env bash
# perf2trace_test.sh PYTHON TOOL CASE: runs one case, the function case_CASE, in a folder of its own.
# CMake finds the cases by their names. The trace is read by jq, which shares no code with what wrote it.
set -euo pipefail
export LC_ALL=C.UTF-8 TZ=UTC
python=$1
tool=$2
case=$3
folder=$(mktemp -d "perf2trace-XXXXXX")
trap 'rm -rf "$OLDPWD/$folder"' EXIT
cd "$folder"

fail()
{
    printf '%s\n' "$@"
    [ ! -f warnings ] || sed 's/^/    standard error: /' warnings
    [ ! -f trace.json ] || head -c 4000 trace.json
    exit 1
}

# run STATUS ARGUMENT...: the tool, which has to end with that status, within half a minute and in "memory" kilobytes.
# Leaves standard output in trace.json.
run()
{
    local wanted=$1 status=0
    shift
    (
        ulimit -t 30
        [ -z "${memory:-}" ] || ulimit -v "$memory"
        exec "$python" "$tool" "$@" >trace.json 2>warnings
    ) || status=$?
    [ "$status" -eq "$wanted" ] || fail "status $status instead of $wanted"
    ! grep -q Traceback warnings || fail "an exception that nobody caught"
}

# What holds for every trace, in the order of the format's description.
readonly valid='
    (keys == ["displayTimeUnit", "traceEvents"]) and .displayTimeUnit == "ms" and
    all(.traceEvents[];
        (.name | type == "string") and (.ph | IN("i", "C", "X", "M")) and
        (.pid | type == "number" and . >= 0) and (.tid | type == "number" and . >= 0) and
        (.args | type == "object") and
        (.ph == "M" or (.ts | type == "number" and . >= 0 and . == floor)) and
        (.ph != "i" or (.s | IN("t", "p"))) and
        (.ph != "X" or (.dur | type == "number" and . >= 0 and . == floor)) and
        (.ph != "C" or all(.args[]; type == "number")))'

# convert STATUS ARGUMENT...: the same, and there is a valid trace.
convert()
{
    run "$@"
    jq -e "$valid" trace.json >/dev/null || fail "no valid trace"
}

# is FILTER TEXT: what jq makes of the trace, a line for each result.
is()
{
    diff <(jq -c "$1" trace.json) <([ -z "$2" ] || printf '%s\n' "$2") || fail "$1 (< is so, > was expected)"
}

# warned TEXT...: all that was said, without the beginning of each line.
warned()
{
    diff <(sed 's/^perf2trace: [^:]*: //' warnings) <([ $# -eq 0 ] || printf '%s\n' "$@") ||
        fail "other warnings (< is so, > was expected)"
}

records() # LINE...
{
    printf '%s\r\n' "$@" >4312_P11142325_0
}

monitor() # LINE...
{
    printf '%s\r\n' "$@" >monitor.log
}

# A measurement at 2026-03-05 14:07:09.042, which is 1772719629042 ms after 1970 as "date -u" counts.
measured() # MESSAGE...
{
    monitor "${@/#/05/03 14:07:09.042 5 viewer[4312,5120]: =}"
    convert 0 --year 2026 monitor.log
}

readonly events='.traceEvents[] | select(.ph != "M")'
readonly instants='.traceEvents[] | select(.ph == "i")'
readonly counters='.traceEvents[] | select(.ph == "C")'
readonly spans='.traceEvents[] | select(.ph == "X")'

# Records -----------------------------------------------------------------------------------------------------------
case_ARecordIsAnInstantEventAndACounter()
{
    records '4517358,viewer,load,0.5,album 12,image 1'
    convert 0 4312_P11142325_0
    is "$instants" '{"name":"viewer/load","cat":"record","ph":"i","s":"t","ts":4517358000,"pid":4312,"tid":1,"args":{"value":0.5,"third":"album 12","fourth":"image 1"}}'
    is "$counters" '{"name":"viewer/load","cat":"record","ph":"C","ts":4517358000,"pid":4312,"tid":1,"args":{"value":0.5}}'
    is '.traceEvents | length' 4 # and two names
    warned
}

case_RecordsMayEndWithLineFeedsOnly()
{
    printf '1,a,b,2,c,d\n2,a,b,3,c,d\n' >4312_P11142325_0
    convert 0 4312_P11142325_0
    is "$instants | [.ts, .args.value, .args.fourth]" '[1000,2,"d"]
[2000,3,"d"]'
    warned
}

case_ATimeThatJumpsBackBeginsAThread()
{
    records '10,a,b,1,c,d' '10,a,b,2,c,d' '12,a,b,3,c,d' '11,a,b,4,c,d' '11,a,b,5,c,d' '0,a,b,6,c,d'
    convert 0 4312_P11142325_0
    is "$instants | [.args.value, .tid]" '[1,1]
[2,1]
[3,1]
[4,2]
[5,2]
[6,3]'
    is '.traceEvents[] | select(.name == "thread_name") | [.ph, .pid, .tid, .args.name]' '["M",4312,1,"block 1"]
["M",4312,2,"block 2"]
["M",4312,3,"block 3"]'
}

case_TheFilesNameTellsTheProcess()
{
    records '1,a,b,2,c,d'
    convert 0 "$PWD/4312_P11142325_0"
    is '.traceEvents[] | select(.name == "process_name") | [.ph, .pid, .args.name]' '["M",4312,"4312_P11142325_0"]'
    mv 4312_P11142325_0 77_P01020304_15.txt
    convert 0 77_P01020304_15.txt
    is "$instants | .pid" 77
    warned
    mv 77_P01020304_15.txt records
    convert 0 records
    is "$instants | .pid" 1
    warned "the file's name does not begin with a process id, so that is 1"
}

case_TheValueIsTheFirstNumberBehindTheSecondText()
{
    records \
        '1,a,b,c,0.5,third,fourth' \
        '2,a,b,0.5,third,fourth,and,more' \
        '3,a,b,c,d,0.5,7,8' \
        '4,a,b,0.5,7,8' \
        '5,,,0.5,,' \
        '5,1,7,0.5,,' \
        '6,a,b,x,y,7,z' \
        '7,a,b,c,d,7'
    convert 0 4312_P11142325_0
    is "$instants | [.name, .args.value, .args.third, .args.fourth]" '["a/b,c",0.5,"third","fourth"]
["a/b",0.5,"third","fourth,and,more"]
["a/b,c,d",0.5,"7","8"]
["a/b",0.5,"7","8"]
["/",0.5,"",""]
["1/7",0.5,"",""]'
    warned 'lines 7 to 8: a record without a value' '2 of 8 lines left out'
}

case_ValuesAreReadInEveryFormThatIsWritten()
{
    records '1,a,b,0,c,d' '1,a,b,-0.5,c,d' '1,a,b,1.23457e+06,c,d' '1,a,b,1e-05,c,d' '1,a,b,100000,c,d' \
        '1,a,b,inf,c,d' '1,a,b,-inf,c,d' '1,a,b,nan,c,d' '1,a,b,3.40282e+38,c,d' '1,a,b,1e999,c,d'
    convert 0 4312_P11142325_0
    is "[$counters | .args.value] == [0, -0.5, 1234570, 0.00001, 100000, 3.40282e38]" true
    is "$instants | .args.value | select(type == \"string\")" '"inf"
"-inf"
"nan"
"1e999"'
    warned
}

case_TextsThatLookLikeNumbersToPythonAloneAreNone()
{
    records '1,a,b,1_000,0.5,c,d' '1,a,b, 1,0.5,c,d' '1,a,b,infinity,0.5,c,d' '1,a,b,٣,0.5,c,d' '1,a,b,0x1,0.5,c,d'
    convert 0 4312_P11142325_0
    is "[$instants | .args.value] == [0.5, 0.5, 0.5, 0.5, 0.5]" true
}

case_RecordsThatAreNoneAreLeftOut()
{
    records '1,a,b,2,c,d' 'a heading' '' '1,a,b,2,c' '-1,a,b,2,c,d' '1.5,a,b,2,c,d' '1,a,b,2,c,d' \
        '9000000000001,a,b,2,c,d' '99999999999999999999,a,b,2,c,d' '1,a,b,none,c,d' '٣,a,b,2,c,d' \
        '9000000000000,a,b,2,c,d'
    convert 0 4312_P11142325_0
    is "$instants | .ts" '1000
1000
9000000000000000'
    warned 'lines 2 to 6: no record' 'line 8: a time that no viewer can show' 'line 9: no record' \
        'line 10: a record without a value' 'line 11: no record' '9 of 12 lines left out'
}

case_TextsArriveAsTheyAre()
{
    printf '1,say "hi",C:\\x,2,\t\001,\303\244\360\237\230\200\n' >4312_P11142325_0
    convert 0 4312_P11142325_0
    is "$instants | .name == \"say \\\"hi\\\"/C:\\\\x\"" true
    is "$instants | .args.third | explode" '[9,1]'
    is "$instants | .args.fourth | explode" '[228,128512]'
    ! LC_ALL=C grep -q '[^ -~]' trace.json || fail 'the trace is not plain ASCII'
}

case_WhatIsNoUtf8IsReplaced()
{
    printf '1,a\377,b\355\240\275,2,c\0,d\303\n' >4312_P11142325_0
    convert 0 4312_P11142325_0
    is "$instants | .name | explode" '[97,65533,47,98,65533,65533,65533]'
    is "$instants | .args | [.third, .fourth] | map(explode)" '[[99,0],[100,65533]]'
    warned
}

# Monitor logs ------------------------------------------------------------------------------------------------------
case_AMessageIsAnInstantEvent()
{
    monitor '05/03 14:07:09.042 5 viewer[4312,5120]: =the cache is warm' \
        '05/03 14:07:09.043 7 the viewer[4312,5121]album 12: =a: =b' \
        '05/03 14:07:09.044 1 a: =b[4312,5121]: =c[1,2]: =d' \
        '05/03 14:07:09.045 6 viewer[4312,5121] A4: =e'
    convert 0 --year 2026 monitor.log
    is "$events" '{"name":"the cache is warm","cat":"message","ph":"i","s":"t","ts":1772719629042000,"pid":4312,"tid":5120,"args":{"level":5}}
{"name":"a: =b","cat":"message","ph":"i","s":"t","ts":1772719629043000,"pid":4312,"tid":5121,"args":{"level":7,"context":"album 12"}}
{"name":"c[1,2]: =d","cat":"message","ph":"i","s":"t","ts":1772719629044000,"pid":4312,"tid":5121,"args":{"level":1}}
{"name":"e","cat":"message","ph":"i","s":"t","ts":1772719629045000,"pid":4312,"tid":5121,"args":{"level":6,"context":"A4"}}'
    warned
}

case_AMeasurementWithADurationEndsAtItsLine()
{
    measured T=scope,ms=42
    is "$events" '{"name":"scope","cat":"measurement","ph":"X","ts":1772719629000000,"pid":4312,"tid":5120,"args":{"ms":42,"level":5},"dur":42000}'
    warned
}

case_AMeasurementWithoutADurationIsAnInstantEvent()
{
    measured T=cache,images=17 T=cache T=
    is "$instants | [.name, .ts, .s, .args.images]" '["cache",1772719629042000,"t",17]
["cache",1772719629042000,"t",null]
["",1772719629042000,"t",null]'
    is "$spans" ''
}

case_ManyNamesTellADurationButMsComesFirst()
{
    measured T=a,time=1,duration=2,x_ms=3,ms=4 T=b,time=1,x_ms=3,duration=2 T=c,x_ms=3,y_ms=5,time=1 \
        T=d,x_ms=3,y_ms=5 T=e,MS=6 T=f,Read_Ms=7.5 T=g,milliseconds=8,timer=9,_ms=10 T=h,ms=0 T=i,ms=16.1
    is "$spans | [.name, .dur]" '["a",4000]
["b",2000]
["c",1000]
["d",3000]
["e",6000]
["f",7500]
["g",10000]
["h",0]
["i",16100]'
}

case_WhatCannotBeADurationIsAValueLikeOthers()
{
    measured T=a,ms=-1 T=b,ms=soon T=c,ms=inf T=d,ms=1772719629043 T=e,ms=9000000000001 T=f,ms=x,time=2
    is "$instants | [.name, .args.ms]" '["a",-1]
["b","soon"]
["c","inf"]
["d",1772719629043]
["e",9000000000001]'
    is "$spans | [.name, .dur]" '["f",2000]'
    is "$counters | [.name, .args.value]" '["a/ms",-1]
["d/ms",1772719629043]
["e/ms",9000000000001]'
}

case_TheOtherNumbersAreArgumentsAndCounters()
{
    measured 'T=load,cpu=12.3,images=-4,file=front.png,big=9223372036854775807,ms=10,empty=,word=(null),nan=nan'
    is "$spans | .args" '{"cpu":12.3,"images":-4,"file":"front.png","big":"9223372036854775807","ms":10,"empty":"","word":"(null)","nan":"nan","level":5}'
    is "[$counters | [.name, .ts, .pid, .tid]] | unique" '[["load/big",1772719629042000,4312,5120],["load/cpu",1772719629042000,4312,5120],["load/images",1772719629042000,4312,5120]]'
    is "[$counters | .args.value] == [12.3, -4, 9223372036854775807]" true
}

case_IntegersThatViewersCannotShowAreTexts()
{
    measured T=a,x=9007199254740992,y=9007199254740993,z=-9007199254740993
    is "$instants | .args" '{"x":9007199254740992,"y":"9007199254740993","z":"-9007199254740993","level":5}'
}

case_NumbersOfAnyLengthAreRead()
{
    measured "T=a,x=$(printf '9%.0s' {1..309}),y=$(printf '9%.0s' {1..5000}),z=1$(printf '0%.0s' {1..308}).5"
    is "$instants | .args | map_values(type)" '{"x":"string","y":"string","z":"string","level":"number"}'
    is "$counters | .name" '"a/z"'
}

case_WhatHasNoEqualsSignBelongsToTheTextInFront()
{
    measured 'T=load, slowly,file=a,b.png,c=d=e,ms=1'
    is "$spans | [.name, .args.file, .args.c]" '["load, slowly","a,b.png","d=e"]'
}

case_NoPairIsLostToAnotherOfItsName()
{
    measured 'T=a,x=1,x=2,x (2)=3,x=4,level=9'
    is "$instants | .args" '{"x":1,"x (2)":2,"x (2) (2)":3,"x (3)":4,"level":9,"level (2)":5}'
}

case_ProcessesAndThreadsHaveNames()
{
    monitor '05/03 14:07:09.042 5 viewer[4312,5120]: =a' '05/03 14:07:09.042 5 viewer[4312,5120]: =b' \
        '05/03 14:07:09.042 5 viewer[4312,-2]: =c' '05/03 14:07:09.042 5 archive[99,5120]: =d' \
        '05/03 14:07:09.042 5 archive[4312,5120]: =e'
    convert 0 --year 2026 monitor.log
    is '.traceEvents[] | select(.ph == "M") | [.name, .pid, .tid, .args.name]' '["process_name",4312,0,"viewer"]
["thread_name",4312,5120,"thread 5120"]
["thread_name",4312,4294967294,"thread 4294967294"]
["process_name",99,0,"archive"]
["thread_name",99,5120,"thread 5120"]
["process_name",4312,0,"archive"]'
}

case_SessionsHaveTheTimesOfTheirLines()
{
    monitor '===== user Ann (night) on VM (4312) start session =====' \
        '===== user root on VM (99) start session =====' \
        '05/03 14:07:09.042 5 viewer[4312,5120]: =a' \
        '05/03 14:07:09.043 5 archive[99,1]: =b' \
        '05/03 14:07:09.044 5 viewer[4312,5121]: =c' \
        '05/03 14:07:09.045 5 archive[99,1]: =d' \
        '===== user Ann (night) on VM (4312) end session ====='
    convert 0 --year 2026 monitor.log
    is '.traceEvents[] | select(.cat == "session") | [.name, .ph, .s, .ts, .pid, .tid, .args.user, .args.host]' \
        '["start session","i","p",1772719629042000,4312,5120,"Ann (night)","VM"]
["start session","i","p",1772719629043000,99,1,"root","VM"]
["end session","i","p",1772719629044000,4312,5121,"Ann (night)","VM"]'
    is '.traceEvents[] | select(.name == "process_labels") | [.ph, .pid, .args.labels]' '["M",4312,"Ann (night) on VM"]
["M",99,"root on VM"]'
    warned
}

case_SessionsWithoutLinesHaveNoTime()
{
    monitor '05/03 14:07:09.042 5 viewer[4312,5120]: =of a process that crashed' \
        '===== user root on VM (4312) start session =====' \
        '===== user root on VM (4312) end session =====' \
        '===== user root on VM (99) end session =====' \
        '===== user root on VM (99) start session =====' \
        '===== user root on VM (99) start session ====='
    convert 0 --year 2026 monitor.log
    is "$events | .name" '"of a process that crashed"'
    warned 'lines 2 to 6: a session of which no line has a time' '5 of 6 lines left out'
}

case_MonitorLinesThatAreNoneAreLeftOut()
{
    monitor '05/03 14:07:09.042 5 viewer[4312,5120]: =a' 'a text without a headline' '' \
        '14:07:09.04 5 viewer[4312,5120]: =console' \
        '00/03 14:07:09.042 5 viewer[4312,5120]: =a' '31/04 14:07:09.042 5 viewer[4312,5120]: =a' \
        '05/13 14:07:09.042 5 viewer[4312,5120]: =a' '05/03 24:07:09.042 5 viewer[4312,5120]: =a' \
        '05/03 14:07:09.042 5 viewer: =a' '05/03 14:07:09.042 5 viewer[4312,5120]=a' \
        '05/03 14:07:09.042 5 viewer[4312,9999999999]: =a' '===== user root on VM start session =====' \
        '05/03 14:07:09.042 5 viewer[4312,5120]: =b'
    convert 0 --year 2026 monitor.log
    is "$events | .name" '"a"
"b"'
    warned 'lines 2 to 4: no line with a time' 'lines 5 to 8: no such date or time' \
        'lines 9 to 10: no application, process, thread and message' 'line 11: no process and thread' \
        'line 12: no line with a time' '11 of 13 lines left out'
}

# Years -------------------------------------------------------------------------------------------------------------
dates() # DATE...: lines of noon, and the years they get
{
    local arguments=()
    while [[ $1 = -* ]]; do
        arguments+=("$1" "$2")
        shift 2
    done
    monitor "${@/%/ 12:00:00.000 5 viewer[4312,5120]: =a}"
    touch -d "${modified:-2026-11-21 12:00}" monitor.log
    convert 0 "${arguments[@]}" monitor.log
}

readonly days="$instants | .ts / 1000000 | todate | .[:10]"

case_TheYearIsTheOneThatWasSaid()
{
    dates --year 1999 05/03 31/12
    is "$days" '"1999-03-05"
"1999-12-31"'
}

case_WithoutAYearTheFilesChangeTells()
{
    modified='2021-06-01 12:00' dates 05/03 06/03
    is "$days" '"2021-03-05"
"2021-03-06"'
}

case_ANewYearIsCounted()
{
    dates --year 2024 30/12 31/12 01/01 30/06 31/12 01/01
    is "$days" '"2024-12-30"
"2024-12-31"
"2025-01-01"
"2025-06-30"
"2025-12-31"
"2026-01-01"'
}

case_WithoutAYearTheLastLineIsOfTheOneOfTheChange()
{
    modified='2026-01-02 12:00' dates 31/12 01/01 31/12 01/01 02/01
    is "$days" '"2025-12-31"
"2026-01-01"
"2025-12-31"
"2026-01-01"
"2026-01-02"'
}

case_AGapMayEndInANewYear()
{
    dates --year 2024 20/11 03/02 01/02
    is "$days" '"2024-11-20"
"2025-02-03"
"2026-02-01"'
}

case_ALateLineBeginsNoYear()
{
    monitor '01/01 00:00:00.002 5 viewer[4312,5120]: =a' '31/12 23:59:59.999 5 viewer[4312,5121]: =b' \
        '01/01 00:00:00.004 5 viewer[4312,5120]: =c' '01/01 00:00:00.003 5 viewer[4312,5121]: =d'
    convert 0 --year 2026 monitor.log
    is "$instants | .ts" '1767225600002000
1767225599999000
1767225600004000
1767225600003000'
}

case_NotEveryYearHasALeapDay()
{
    dates --year 2023 28/02 29/02 02/03 29/02
    is "$days" '"2023-02-28"
"2023-03-02"
"2024-02-29"'
    warned 'line 2: 2023 has no 29 February' '1 of 4 lines left out'
}

case_YearsThatNoViewerShowsAreLeftOut()
{
    dates --year 2261 31/12 01/01
    is "$days" '"2261-12-31"'
    warned 'line 2: its year would be 2262, which no viewer can show' '1 of 2 lines left out'
    modified='1970-06-01 12:00' dates 31/12 01/01
    is "$days" '"1970-12-31"
"1971-01-01"'
    run 2 --year 1969 monitor.log
    run 2 --year soon monitor.log
}

# What the file is --------------------------------------------------------------------------------------------------
case_TheFirstLineThatIsUnderstoodTellsTheKind()
{
    records 'a heading' '1,a,b,2,c,d' '05/03 14:07:09.042 5 viewer[4312,5120]: =a' '2,a,b,2,c,d'
    convert 0 4312_P11142325_0
    is "$instants | .cat" '"record"
"record"'
    warned 'line 1: neither a record nor a line of a monitor log' 'line 3: no record' '2 of 4 lines left out'
    monitor 'a heading' '05/03 14:07:09.042 5 viewer[4312,5120]: =a' '1,a,b,2,c,d'
    convert 0 monitor.log
    is "$instants | .cat" '"message"'
    warned 'line 1: neither a record nor a line of a monitor log' 'line 3: no line with a time' '2 of 3 lines left out'
}

case_TheKindCanBeForced()
{
    monitor '1,a,b,2,c,d' '05/03 14:07:09.042 5 viewer[4312,5120]: =a'
    convert 0 --kind monitor monitor.log
    is "$instants | .cat" '"message"'
    convert 0 --kind records monitor.log
    is "$instants | .cat" '"record"'
    run 2 --kind other monitor.log
    monitor '05/03 14:07:09.042 5 viewer[4312,5120]: =a'
    convert 1 --kind records monitor.log
    is "$events" ''
    records '1,a,b,2,c,d'
    convert 1 --kind monitor 4312_P11142325_0
    is "$events" ''
}

case_APipeIsReadOnce()
{
    "$python" -c 'print("31/12 14:07:09.042 5 viewer[4312,5120]: =a\n" * 20000, end="")' >monitor.log
    convert 0 <(cat monitor.log)
    is "[$instants] | length" 20000
}

# What is hostile ---------------------------------------------------------------------------------------------------
case_AnEmptyFileIsAnEmptyTrace()
{
    : >4312_P11142325_0
    for kind in '' '--kind=records' '--kind=monitor'; do
        convert 0 ${kind:+"$kind"} 4312_P11142325_0
        is '.traceEvents' '[]'
        warned 'the file is empty, and so is the trace'
    done
}

case_JunkIsLeftOut()
{
    local seed
    for seed in 1 2 3; do
        "$python" -c 'import random, sys; random.seed(int(sys.argv[1])); sys.stdout.buffer.write(random.randbytes(300000))' \
            "$seed" >junk
        printf '\n' >>junk
        for kind in records monitor; do
            convert 1 --kind "$kind" junk
            is '.traceEvents' '[]'
        done
        convert 1 junk
        is '.traceEvents' '[]'
    done
    printf '1,a,b,2,c,d\n05/03 14:07:09.042 5 viewer[4312,5120]: =a\n' >>junk
    convert 0 --kind records junk
    is "$instants | .cat" '"record"'
    convert 0 --kind monitor junk
    is "$instants | .cat" '"message"'
}

# Lines of both kinds with pieces swapped, doubled and lost: whatever comes out is a valid trace.
case_MangledLinesMakeValidTraces()
{
    "$python" - <<'END' >mangled
import random, sys
random.seed(1)
lines = [b"4517358,viewer,load,0.5,album 12,image 1",
         b"05/03 14:07:09.042 5 viewer[4312,5120]album: =T=load,cpu=12.3,ms=15",
         b"31/12 23:59:59.999 5 viewer[4312,5120]: =text", b"01/01 00:00:00.000 5 viewer[4312,5121]: =T=x,x=1,x=2,time=-1",
         b"===== user root on VM (4312) start session =====", b"===== user root on VM (4312) end session ====="]
for _ in range(20000):
    # Few of another date, as each of them may begin a year, and there are only so many.
    line = bytearray(random.choices(lines, [100, 100, 1, 1, 100, 100])[0])
    for _ in range(random.choice([0, 0, 1, 1, 2, 5])):
        at = random.randrange(len(line) + 1)
        what = random.randrange(4)
        if what == 0:
            line[at:at + random.randrange(6)] = b""
        elif what == 1:
            line[at:at] = line[at:at + random.randrange(20)]
        elif what == 2:
            line[at:at] = bytes([random.randrange(256)])
        else:
            line[at:at] = random.choice([b"-", b"9" * 30, b",", b"=", b"[", b"]: =", b"e999", b"\xff", b"\r", b"\n", b"inf", b"T="])
    sys.stdout.buffer.write(line + b"\r\n")
END
    convert 0 --kind records mangled
    is "[$instants] | length > 1000" true
    convert 0 --kind monitor --year 2026 mangled
    is "[$spans] | length > 500" true
    convert 0 --kind monitor mangled
}

case_HugeLinesNeedNoMemory()
{
    {
        printf '1,a,b,2,c,d\n'
        printf '2,a,b,2,c,'
        head -c 200000000 /dev/zero | tr '\0' x
        printf '\n3,a,b,2,c,'
        head -c 1000000 /dev/zero | tr '\0' y
        printf '\n4,a,b,2,c,'
        head -c 100000000 /dev/zero
    } >4312_P11142325_0
    memory=60000 convert 0 4312_P11142325_0
    is "$instants | [.ts, (.args.fourth | length)]" '[1000,1]
[3000,1000000]'
    warned 'line 2: longer than 1 MB' 'line 4: longer than 1 MB' '2 of 4 lines left out'
}

# Long lines that could be tried again from every place in them.
case_NoLineTakesLong()
{
    local text
    for text in ',' ' on ' '[1,1]' '[1' ',ms=1' ',=' '= ,' 'x,' '1,' '] ' ': ='; do
        text=$("$python" -c 'import sys; print(sys.argv[1] * (250000 // len(sys.argv[1])))' "$text")
        printf '%s\n' "===== user $text" "05/03 14:07:09.042 5 $text" "05/03 14:07:09.042 5 viewer[1,1]$text" \
            "05/03 14:07:09.042 5 viewer[1,1]: =T=$text" >monitor.log
        convert 0 --kind monitor monitor.log
        printf '%s\n' "1,$text" "1,a,b,$text" "1,a,b,1,c,d,$text" >records
        convert 0 --kind records records
    done
}

case_ALastLineWithoutAnEndIsLeftOut()
{
    printf '1,a,b,2,c,d\r\n2,a,b,2,c,d' >4312_P11142325_0
    convert 0 4312_P11142325_0
    is "$instants | .ts" 1000
    warned 'line 2: has no end, so it may have been cut' '1 of 2 lines left out'
    printf '05/03 14:07:09.042 5 viewer[4312,5120]: =a\n05/03 14:07:09.042 5 viewer[4312,5120]: =T=load,ms=15' >monitor.log
    convert 0 monitor.log
    is "$instants | .name" '"a"'
    warned 'line 2: has no end, so it may have been cut' '1 of 2 lines left out'
}

case_ManyRecordsNeedNoMemory()
{
    "$python" -c '
for i in range(100000):
    print(f"{i % 50000},viewer,load {i},0.5,album 12,image {i}", end="\r\n")' >4312_P11142325_0
    memory=60000 convert 0 4312_P11142325_0
    is 'reduce .traceEvents[] as $event ({}; .[$event.ph] += 1) | tojson' '"{\"M\":3,\"i\":100000,\"C\":100000}"'
}

# Calling it --------------------------------------------------------------------------------------------------------
case_TheTraceGoesWhereItIsWanted()
{
    records '1,a,b,2,c,d'
    convert 0 4312_P11142325_0
    mv trace.json expected.json
    run 0 4312_P11142325_0 -o there.json
    [ ! -s trace.json ] || fail 'something was written to standard output'
    cmp expected.json there.json
    run 0 --output there.json 4312_P11142325_0
    cmp expected.json there.json
}

case_AFileIsNotOverwrittenByItsTrace()
{
    records '1,a,b,2,c,d'
    cp 4312_P11142325_0 kept
    ln -s 4312_P11142325_0 link
    run 1 4312_P11142325_0 -o link
    warned 'the trace would overwrite what it is made from'
    cmp kept 4312_P11142325_0
}

case_WhatTheSystemRefusesIsSaid()
{
    records '1,a,b,2,c,d'
    run 1 missing -o new.json
    grep -q 'No such file' warnings || fail 'not said'
    [ ! -e new.json ] || fail 'a trace of nothing was begun'
    run 1 .
    grep -qi 'directory' warnings || fail 'not said'
    run 1 4312_P11142325_0 -o missing/new.json
    grep -q 'No such file' warnings || fail 'not said'
    run 1 4312_P11142325_0 -o /dev/full
    grep -q 'No space left' warnings || fail 'not said'
    "$python" "$tool" 4312_P11142325_0 >/dev/full 2>warnings && fail 'a full disk went unnoticed'
    [ "$(grep -c . warnings)" -eq 1 ] || fail 'more was said than that'
}

case_AReaderMayStopEarly()
{
    local statuses
    "$python" -c 'print("1,a,b,2,c,d\n" * 20000, end="")' >4312_P11142325_0
    set +e
    "$python" "$tool" 4312_P11142325_0 2>warnings | head -n 1 >trace.json
    statuses="${PIPESTATUS[*]}"
    set -e
    [ "$statuses" = '1 0' ] || fail "statuses $statuses"
    warned
}

case_HelpIsPrinted()
{
    run 0 --help
    grep -q '^usage: perf2trace ' trace.json || fail 'no help'
    for option in --output --kind --year; do
        grep -q -- "$option" trace.json || fail "nothing about $option"
    done
    run 2
    "$tool" --help >/dev/null
}

"case_$case"
