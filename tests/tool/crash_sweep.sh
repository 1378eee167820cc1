#!/usr/bin/env bash
# Crash sweep: every command that changes a volume is stopped or failed at each
# of its writes, truncations and syncs in turn (tests/support/fault_inject.cc,
# preloaded), and 'ckdvol recover' must then leave the volume exactly as
# before the command or exactly as after it; a command that reports success
# must have left it as after, one that says "nothing was changed" (create:
# "created") as before.
#   crash_sweep.sh TOOL INJECTOR [PART PARTS]   (CKDVOL_MAKE_TEST_PDS:
#   tests/pds' volume generator; CKDVOL_CRASH_SEED: seed of the sampled call
#   numbers). With PART and PARTS only every PARTS-th command from the
#   PART-th on is swept, so that parts can run side by side.
set -u
TOOL=$(realpath "$1")
FI=$(realpath "$2")
PART=${3:-1}
PARTS=${4:-1}
GEN=${CKDVOL_MAKE_TEST_PDS:-}
mkdir -p "${TMPDIR:-/tmp}"
# Member statistics hold the time of day: every trial must give the same volume.
export SOURCE_DATE_EPOCH=1700000000
W=$(mktemp -d "${TMPDIR:-/tmp}/ckdvol-crash-XXXXXX")
trap 'rm -rf "$W"' EXIT
cd "$W" || exit 1
[ -x "$GEN" ] && [ -f "$FI" ] || { echo "FAIL: need the generator (CKDVOL_MAKE_TEST_PDS) and the injector"; exit 1; }
# The injector is preloaded ahead of the sanitizer runtime (see its header).
export ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}verify_asan_link_order=0"
SEED=${CKDVOL_CRASH_SEED:-$$}
RANDOM=$SEED
trials=0
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
recover=1
"$TOOL" recover --help >/dev/null 2>&1 || { recover=0; echo "note: this ckdvol has no 'recover' command; sweeping without it"; }

# inject MODE N OPS ARGS...: the tool on v.ckd under the injector; status in st
inject() {
  local mode=$1 n=$2 ops=$3
  shift 3
  st=0
  { env LD_PRELOAD="$FI" FI_PATH="$W/v.ckd" FI_MODE="$mode" FI_N="$n" FI_OPS="$ops" FI_COUNT_FILE="$W/count" \
      "$TOOL" "$@" >out 2>err </dev/null; } 2>/dev/null || st=$?
}
restore() { rm -f v.ckd; [ ! -e before.ckd ] || cp before.ckd v.ckd; }
state() {  # before, after, neither, or missing (no file where one was)
  if [ ! -e v.ckd ]; then if [ -e before.ckd ]; then echo missing; else echo before; fi
  elif [ -e before.ckd ] && cmp -s v.ckd before.ckd; then echo before
  elif cmp -s v.ckd after.ckd; then echo after
  else echo neither; fi
}
numbers() {  # numbers C: 1..C, or when C > 50 the first and last 10 and 30 drawn between
  if [ "$1" -le 50 ]; then seq 1 "$1"; return; fi
  { seq 1 10; seq $(($1 - 9)) "$1"; for _ in $(seq 30); do echo $((11 + RANDOM % ($1 - 20))); done; } | sort -nu
}

# sweep NAME OK ARGS...: before.ckd (absent for create) is the volume the
# command starts from, OK its status on success. Modes as the injector's,
# and read-eio: the N-th read fails with EIO.
sweeps=0
sweep() {
  local name=$1 ok=$2 mode n ops calls writes reads pre post rst why seen=" "
  shift 2
  sweeps=$((sweeps + 1))
  [ $(((sweeps - 1) % PARTS)) -eq $((PART - 1)) ] || return 0
  restore && inject none 0 read "$@"
  reads=$(cat count)
  restore && inject none 0 write,trunc,sync "$@"
  writes=$(cat count)
  [ "$st" -eq "$ok" ] || { fail "$name: exit $st without faults: $(head -1 err)"; return; }
  cp v.ckd after.ckd
  cmp -s after.ckd before.ckd 2>/dev/null && { fail "$name: the command changed nothing"; return; }
  for mode in kill torn eio enospc short powerloss read-eio; do
    ops=write,trunc,sync calls=$writes
    [ "$mode" != read-eio ] || ops=read calls=$reads
    for n in $(numbers "$calls"); do
      restore
      inject "${mode#read-}" "$n" "$ops" "$@"
      trials=$((trials + 1))
      pre=$(state) rst=- why=""
      if [ "$recover" -eq 1 ] && [ -e v.ckd ]; then
        rst=0
        "$TOOL" recover v.ckd >rout 2>rerr </dev/null || rst=$?
      fi
      post=$(state)
      seen+="$post "
      case $mode in
        kill | torn | powerloss) [ "$st" -eq 137 ] || why+=" not stopped at call $n;" ;;
        *) [ "$st" -eq 1 ] || [ "$st" -eq "$ok" ] || why+=" exit status $st;" ;;
      esac
      [ "$st" -eq 1 ] && grep -qE "nothing was (changed|created)" err && [ "$pre" != before ] && why+=" said nothing was changed;"
      # A failure says which: undone at once, or left for recover.
      [ "$st" -eq 1 ] && ! grep -qE "nothing was (changed|created)|ckdvol recover" err && why+=" exit 1 says neither;"
      [ "$st" -eq "$ok" ] && [ "$post" != after ] && why+=" reported success;"
      [ "$rst" = - ] || [ "$rst" -eq 0 ] || why+=" recover exit $rst: $(head -1 rerr);"
      case $post in before | after) ;; *) why+=" volume $post;" ;; esac
      [ -z "$why" ] || fail "$name, $mode, N=$n of $calls: exit $st, $pre -> $post after recover ($rst):$why $(head -1 err)"
    done
  done
  [[ $seen == *" before "* && $seen == *" after "* ]] || fail "$name: no trial ended before, or none after (saw:$seen)"
  # Recovery interrupted too: the command killed half way, then recover
  # stopped or failed at each of its own calls, then recover again.
  restore && inject kill $(((writes + 1) / 2)) write,trunc,sync "$@"
  [ -e v.ckd ] || return 0
  cp v.ckd mid.ckd
  inject none 0 write,trunc,sync recover v.ckd
  calls=$(cat count)
  for mode in kill torn eio; do
    for n in $(numbers "$calls"); do
      cp mid.ckd v.ckd
      inject "$mode" "$n" write,trunc,sync recover v.ckd
      trials=$((trials + 1)) rst=0
      [ ! -e v.ckd ] || "$TOOL" recover v.ckd >rout 2>rerr </dev/null || rst=$?
      post=$(state)
      case $post in before | after) [ "$rst" -eq 0 ] && continue ;; esac
      fail "$name, recover under $mode at N=$n of $calls: recover then exit $rst, volume $post: $(head -1 rerr)"
    done
  done
}

# The injector itself, on coreutils: shred makes three passes over a file,
# each a write and a sync; dd writes two 4 KiB blocks.
head -c 65536 /dev/zero | tr '\0' A >orig
head -c 65536 /dev/zero | tr '\0' B >new
seq 200000 >random  # shred reads its random bytes from here: 1.2 MB
probe() {  # probe MODE N OPS COMMAND...: COMMAND on f, a copy of orig
  cp orig f
  st=0
  { env LD_PRELOAD="$FI" FI_PATH="$W/f" FI_MODE="$1" FI_N="$2" FI_OPS="$3" "${@:4}" >/dev/null 2>&1; } 2>/dev/null || st=$?
}
shred3() { probe "$1" "$2" sync shred -n 3 --random-source=random f; }
shred3 powerloss 1
cmp -s f orig || fail "injector: a power loss at the first sync did not give back the file"
for k in 1 2; do
  shred3 kill "$k" && mv f "kill$k"
  shred3 powerloss $((k + 1))
  cmp -s f "kill$k" || fail "injector: a power loss at sync $((k + 1)) did not leave the file of sync $k"
done
cmp -s kill1 orig || cmp -s kill1 kill2 && fail "injector: shred's passes left no trace"
while read -r mode n bytes want; do  # dd's outcome: the first BYTES of new over orig, status WANT
  probe "$mode" "$n" write dd if=new of=f bs=4096 count=2 conv=notrunc
  { head -c "$bytes" new; tail -c +$((bytes + 1)) orig; } | cmp -s - f && [ "$st" -eq "$want" ] ||
    fail "injector: dd under $mode at write $n: exit $st, the file is not the first $bytes bytes written"
done <<'EOF'
none 0 8192 0
kill 2 4096 137
torn 2 6144 137
short 1 8192 0
eio 1 0 1
enospc 2 4096 1
EOF

slot() { echo $((512 + $1 * 14848)); }  # slot TRACK: file offset of a D100 track
damage() {                              # damage FILE TRACK...: home addresses naming another track
  local f=$1 t
  shift
  for t in "$@"; do printf '\x12\x34\x56\x78' | dd of="$f" bs=1 seek=$(($(slot "$t") + 1)) conv=notrunc status=none; done
}
run() {  # run STATUS ARGS...: a setup step
  local want=$1 got=0
  shift
  "$TOOL" "$@" >/dev/null 2>&1 </dev/null || got=$?
  [ "$got" -eq "$want" ] || fail "setup: ckdvol $*: exit $got, wanted $want"
}

# Volumes: a fresh D100 of 2 cylinders; one with damaged tracks 3, 5 and 9;
# the same repaired under version 1 (three saved copies); TEST.PDS's BETA
# (three blocks) with new lines.
run 0 create fresh.ckd D100 --cylinders 2
cp fresh.ckd damaged.ckd && damage damaged.ckd 3 5 9
cp damaged.ckd versioned.ckd && run 3 verify versioned.ckd --repair --yes
cp fresh.ckd enabled.ckd && run 0 version enable enabled.ckd
"$GEN" pds.ckd 2>/dev/null
for i in $(seq 100); do echo "NEW LINE $i"; done >beta.txt
# An empty PDS of 3 directory blocks on the fresh volume; 700 lines of 80
# bytes for one member (about four D100 tracks of data).
cp fresh.ckd po.ckd && run 0 alloc po.ckd DEMO.PDS --dsorg PO --recfm FB --lrecl 80 --tracks 12 --dirblks 3
for i in $(seq 700); do printf 'LINE %05d OF A MEMBER THAT FILLS SEVERAL TRACKS\n' "$i"; done >big.txt
# Three small members to load; a PDS with a deleted member for compress.
mkdir -p members && for m in one two three; do seq -f "MEMBER $m LINE %g" 1 30 >"members/$m.txt"; done
cp po.ckd gap.ckd && run 0 load gap.ckd DEMO.PDS members --suffix .txt && run 0 pds delete gap.ckd DEMO.PDS ONE
# A transfer file of that PDS (two members) to import as a new data set.
run 0 export gap.ckd DEMO.PDS demo.xmi

rm -f before.ckd
sweep "create" 0 create v.ckd D100 --cylinders 2
sweep "create --serial" 0 create v.ckd D100 --cylinders 2 --serial SWEEP1 --owner "SWEEP OWNER"
cp fresh.ckd before.ckd && sweep "version enable" 0 version enable v.ckd
cp enabled.ckd before.ckd && sweep "version disable" 0 version disable v.ckd
cp damaged.ckd before.ckd && sweep "verify --repair" 3 verify v.ckd --repair --yes
cp versioned.ckd before.ckd && sweep "version commit" 0 version commit v.ckd
cp versioned.ckd before.ckd && sweep "version rollback" 0 version rollback v.ckd
cp pds.ckd before.ckd && sweep "pds replace" 0 pds replace v.ckd TEST.PDS BETA "$W/beta.txt"
cp fresh.ckd before.ckd && sweep "alloc PO" 0 alloc v.ckd NEW.PDS --dsorg PO --tracks 4 --dirblks 3
cp po.ckd before.ckd && sweep "put member" 0 put v.ckd "DEMO.PDS(BIG)" "$W/big.txt"
cp po.ckd before.ckd && sweep "scratch" 0 scratch v.ckd DEMO.PDS
cp po.ckd before.ckd && sweep "relabel" 0 relabel v.ckd NEWVOL --owner "SWEEP OWNER"
cp po.ckd before.ckd && sweep "load" 0 load v.ckd DEMO.PDS "$W/members" --suffix .txt
cp gap.ckd before.ckd && sweep "pds compress" 0 pds compress v.ckd DEMO.PDS
cp fresh.ckd before.ckd && sweep "import" 0 import v.ckd "$W/demo.xmi" --dsn NEW.PDS

echo "crash sweep (part $PART of $PARTS): $trials trials, $failures failures (seed $SEED, recover step $([ $recover -eq 1 ] && echo on || echo off))"
[ "$failures" -eq 0 ]
