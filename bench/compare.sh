#!/usr/bin/env bash
# Times tessel's whole commands side by side with the tools a user would otherwise reach
# for, in one run on the same files, and prints each ratio (other tool's time / tessel's).
# A ratio above 1 means tessel is faster. Fixtures are made in a temporary folder.
#   TESSEL=path/to/tessel bench/compare.sh [startup] [thumbnails] [listing] [metadata] [cards]
#       [sequences] [avchd]
set -euo pipefail

TESSEL=${TESSEL:-build/release/apps/tessel/tessel}
[ -x "$TESSEL" ] || { echo "compare: no tessel at $TESSEL (build it first)" >&2; exit 1; }
TESSEL=$(cd "$(dirname "$TESSEL")" && pwd)/$(basename "$TESSEL")
# The card writer is built beside the tool, in the build tree's bench/tools.
CARDS=${CARDS:-$(dirname "$(dirname "$(dirname "$TESSEL")")")/bench/tools/tessel_bench_cards}
suites=("$@")
[ ${#suites[@]} -gt 0 ] || suites=(startup thumbnails listing metadata cards sequences avchd)

work=$(mktemp -d "${TMPDIR:-/tmp}/tessel-compare.XXXXXX")
trap 'rm -rf "$work"' EXIT
export TESSEL_PREFS="$work/preferences.json"

have() { command -v "$1" >/dev/null 2>&1; }

# ImageMagick's own binary, not a wrapper that an earlier PATH entry may hold.
CONVERT=""
for candidate in /usr/bin/convert-im6.q16 /usr/bin/convert "$(command -v convert || true)"; do
    [ -n "$candidate" ] && [ -x "$candidate" ] && { CONVERT=$candidate; break; }
done

# seconds COMMAND...: wall-clock seconds of one run of COMMAND (output discarded).
seconds() {
    local start end
    start=$(date +%s.%N)
    "$@" >/dev/null 2>&1 || { echo "compare: failed: $*" >&2; return 1; }
    end=$(date +%s.%N)
    echo "$end - $start" | bc -l
}

# median5 COMMAND...: the median wall-clock seconds of five runs of COMMAND.
median5() {
    local runs=() i
    for i in 1 2 3 4 5; do runs+=("$(seconds "$@")") || return 1; done
    printf '%s\n' "${runs[@]}" | sort -g | sed -n 3p
}

# peak_kib COMMAND...: the peak resident memory of one run of COMMAND, in KiB.
peak_kib() {
    /usr/bin/time -f %M -o "$work/peak" "$@" >/dev/null 2>&1 || true
    tail -n 1 "$work/peak"
}

# row LABEL TESSEL-SECONDS OTHER-LABEL OTHER-SECONDS
row() {
    printf '%-44s %9.3f s   %-34s %9.3f s   ratio %6.2f\n' "$1" "$2" "$3" "$4" \
        "$(echo "$4 / $2" | bc -l)"
}

startup() {
    # What a command costs before it does anything: loading the program and its libraries.
    # 200 runs each, one after the other, so that a millisecond shows.
    repeat() {  # COUNT COMMAND...
        local count=$1 i
        shift
        for ((i = 0; i < count; i++)); do "$@" >/dev/null; done
    }
    echo "== start-up: 200 runs of --version, one after the other"
    local t v
    t=$(seconds repeat 200 "$TESSEL" --version)
    v=$(seconds repeat 200 ls --version)
    row "tessel --version, 200 runs" "$t" "ls --version, 200 runs" "$v"
    printf 'per run: tessel %.2f ms, ls %.2f ms\n' "$(echo "$t * 5" | bc -l)" "$(echo "$v * 5" | bc -l)"
}

thumbnails() {
    [ -n "$CONVERT" ] || { echo "compare: thumbnails need ImageMagick's convert (scripts/install-deps --bench)" >&2; return 1; }
    local jpg="$work/jpg" bmp="$work/bmp" out="$work/out"
    mkdir -p "$jpg" "$bmp" "$out"
    # One realistic 1920x1080 frame (gradient, shapes and noise), copied 200 times; 1,000
    # small 80x60 bitmaps.
    "$CONVERT" -size 1920x1080 gradient:'#204060-#e0c080' \
        -fill '#c03030' -draw 'circle 960,540 960,900' -attenuate 0.4 +noise Gaussian \
        -quality 85 "$jpg/frame-000.jpg"
    for i in $(seq -w 1 199); do cp "$jpg/frame-000.jpg" "$jpg/frame-$i.jpg"; done
    "$CONVERT" -size 80x60 gradient:'#108040-#f0f0f0' -attenuate 0.3 +noise Gaussian \
        -type TrueColor BMP3:"$bmp/icon-0000.bmp"
    for i in $(seq -w 1 999); do cp "$bmp/icon-0000.bmp" "$bmp/icon-$i.bmp"; done

    each_tessel() {  # DIR: one tessel command per file
        local f
        for f in "$1"/*; do
            "$TESSEL" thumb --image "$f" --size 256x144 -o "$out/$(basename "$f").png"
        done
    }
    each_vips() {
        local f
        for f in "$1"/*; do vipsthumbnail "$f" --size 256x144 -o "$out/%s-vips.png"; done
    }
    each_convert() {
        local f
        for f in "$1"/*; do "$CONVERT" "$f" -thumbnail 256x144 "$out/$(basename "$f")-im.png"; done
    }

    echo "== thumbnails: 200 JPEGs 1920x1080 and 1,000 BMPs 80x60 into 256x144, PNG out"
    local t v
    t=$(seconds each_tessel "$jpg")
    if have vipsthumbnail; then
        v=$(seconds each_vips "$jpg"); row "tessel thumb --image, 200 JPEGs" "$t" "vipsthumbnail, one per file" "$v"
        mkdir -p "$out/batch"
        local tb
        tb=$(seconds "$TESSEL" thumb --image "$jpg"/*.jpg --size 256x144 -o "$out/batch")
        v=$(seconds vipsthumbnail "$jpg"/*.jpg --size 256x144 -o "$out/%s-batch.png")
        row "tessel thumb --image, 200 JPEGs in one command" "$tb" "vipsthumbnail, all in one command" "$v"
    else
        echo "compare: vipsthumbnail missing (scripts/install-deps --bench); skipped"
    fi
    v=$(seconds each_convert "$jpg"); row "tessel thumb --image, 200 JPEGs" "$t" "ImageMagick convert, per file" "$v"
    t=$(seconds each_tessel "$bmp")
    v=$(seconds each_convert "$bmp"); row "tessel thumb --image, 1,000 BMPs" "$t" "ImageMagick convert, per file" "$v"
    if have vipsthumbnail; then
        v=$(seconds each_vips "$bmp"); row "tessel thumb --image, 1,000 BMPs" "$t" "vipsthumbnail, one per file" "$v"
    fi
}

listing() {
    local dir="$work/listing"
    mkdir -p "$dir"
    # 100,000 empty files; xargs hands touch thousands of names at a time, which is quick.
    (cd "$dir" && seq -f 'clip-%06g.mxf' 0 99999 | xargs touch)

    echo "== listing: one folder of 100,000 empty files, output to /dev/null (medians of 5)"
    local t v
    t=$(median5 "$TESSEL" ls "$dir"); v=$(median5 ls -1 "$dir")
    row "tessel ls (Name, File Path)" "$t" "ls -1" "$v"
    t=$(median5 "$TESSEL" ls "$dir" --json)
    row "tessel ls --json" "$t" "ls -1" "$v"
    t=$(median5 "$TESSEL" ls "$dir" --fields all); v=$(median5 ls -l --full-time "$dir")
    row "tessel ls --fields all" "$t" "ls -l --full-time" "$v"

    # Peak memory per entry, above what listing an empty folder takes.
    local empty="$work/empty" base
    mkdir -p "$empty"
    base=$(peak_kib "$TESSEL" ls "$empty")
    local args peak
    for args in "" "--json" "--fields all"; do
        # shellcheck disable=SC2086
        peak=$(peak_kib "$TESSEL" ls "$dir" $args)
        printf 'peak memory of tessel ls %-14s %6d bytes per entry above the empty folder (%d KiB)\n' \
            "$args" $(( (peak - base) * 1024 / 100000 )) "$peak"
    done
    printf 'peak memory of ls -1: %d KiB; ls -l --full-time: %d KiB\n' \
        "$(peak_kib ls -1 "$dir")" "$(peak_kib ls -l --full-time "$dir")"

    # A listing of names and paths must not examine the entries one by one. The provider's
    # trace line counts the stats it made; strace counts every stat call of the process.
    "$TESSEL" --trace WinProviderDirectory ls "$dir" --fields Name,Path 2>&1 >/dev/null |
        grep -o 'GetContent took.*' | sed 's/^/tessel ls --fields Name,Path: /' || true
    if have strace; then
        local calls
        calls=$(strace -f -c -e trace=stat,lstat,fstat,newfstatat,statx -o "$work/strace.txt" \
                    "$TESSEL" ls "$dir" --fields Name,Path >/dev/null 2>&1 &&
                awk '$NF == "total" { print $4 }' "$work/strace.txt")
        echo "stat calls of the whole command (strace): ${calls:-?} for 100,000 entries"
    else
        echo "compare: strace missing; stat calls of the whole command not counted"
    fi
}

metadata() {
    have exiftool || { echo "compare: metadata needs exiftool (scripts/install-deps --bench)" >&2; return 1; }
    local dir="$work/metadata"
    mkdir -p "$dir"
    # 1,000 clips, each an MXF file's opening beside the XMP sidecar an editing tool writes for
    # it: timecodes, tape, log notes, technical fields and a short history, about 3 KB.
    head -c 512 /dev/zero >"$work/clip.mxf"
    printf '\x06\x0e\x2b\x34\x02\x05\x01\x01\x0d\x01\x02\x01\x01\x02\x04\x00' |
        dd of="$work/clip.mxf" conv=notrunc status=none
    local i n second
    for i in $(seq -w 1 1000); do
        n=$((10#$i))
        printf -v second '%02d' $((n % 60))
        cp "$work/clip.mxf" "$dir/clip-$i.mxf"
        cat >"$dir/clip-$i.xmp" <<XMP
<?xpacket begin="" id="W5M0MpCehiHzreSzNTczkc9d"?>
<x:xmpmeta xmlns:x="adobe:ns:meta/" x:xmptk="XMP Core 5.6">
 <rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">
  <rdf:Description rdf:about=""
    xmlns:xmp="http://ns.adobe.com/xap/1.0/"
    xmlns:xmpDM="http://ns.adobe.com/xmp/1.0/DynamicMedia/"
    xmlns:stDim="http://ns.adobe.com/xap/1.0/sType/Dimensions#"
    xmlns:dc="http://purl.org/dc/elements/1.1/"
    xmlns:xmpMM="http://ns.adobe.com/xap/1.0/mm/"
    xmlns:stEvt="http://ns.adobe.com/xap/1.0/sType/ResourceEvent#"
    xmp:CreateDate="2023-06-1${i: -1}T10:12:$second+02:00"
    xmp:ModifyDate="2023-06-22T09:00:00+02:00"
    xmp:MetadataDate="2023-06-22T09:00:00+02:00"
    xmpDM:tapeName="A0${i:0:2}"
    xmpDM:altTapeName="Reel $i"
    xmpDM:scene="$((n / 10))"
    xmpDM:shotName="Shot $i"
    xmpDM:takeNumber="$((n % 10))"
    xmpDM:logComment="Wind noise after the second line; keep the wide take."
    xmpDM:good="True"
    xmpDM:videoFrameRate="25p"
    xmpDM:audioSampleRate="48000"
    xmpDM:audioChannelType="Stereo"
    xmpMM:InstanceID="xmp.iid:5c1d2f3e-0000-4000-8000-00000000$i"
    xmpMM:DocumentID="xmp.did:5c1d2f3e-0000-4000-8000-00000000$i">
   <xmpDM:startTimecode xmpDM:timeValue="10:00:$second:00" xmpDM:timeFormat="25Timecode"/>
   <xmpDM:altTimecode xmpDM:timeValue="01:00:00:00" xmpDM:timeFormat="25Timecode"/>
   <xmpDM:duration xmpDM:value="$((n * 3))" xmpDM:scale="1/25"/>
   <xmpDM:videoFrameSize stDim:w="1920" stDim:h="1080" stDim:unit="pixel"/>
   <dc:description>
    <rdf:Alt>
     <rdf:li xml:lang="x-default">Harbour at dawn, clip $i, seen from the pier.</rdf:li>
    </rdf:Alt>
   </dc:description>
   <dc:creator><rdf:Seq><rdf:li>Ana</rdf:li><rdf:li>Ben</rdf:li></rdf:Seq></dc:creator>
   <xmpMM:History>
    <rdf:Seq>
     <rdf:li stEvt:action="created" stEvt:instanceID="xmp.iid:0000$i"
      stEvt:when="2023-06-1${i: -1}T10:12:00+02:00" stEvt:softwareAgent="Ingest 3.1"/>
     <rdf:li stEvt:action="saved" stEvt:instanceID="xmp.iid:5c1d2f3e-0000-4000-8000-00000000$i"
      stEvt:when="2023-06-22T09:00:00+02:00" stEvt:softwareAgent="Logger 2.0"
      stEvt:changed="/metadata"/>
    </rdf:Seq>
   </xmpMM:History>
  </rdf:Description>
 </rdf:RDF>
</x:xmpmeta>
<?xpacket end="w"?>
XMP
    done

    echo "== metadata: 1,000 MXF clips with XMP sidecars (2,000 files), JSON to /dev/null (tessel: medians of 5)"
    local t v names
    t=$(median5 "$TESSEL" ls "$dir" --fields all --json)
    v=$(seconds exiftool -json -XMP:all "$dir")  # seconds per run: once is enough
    row "tessel ls --fields all --json" "$t" "exiftool -json -XMP:all" "$v"
    # What the six metadata columns cost on their own, beside the listing without them.
    names=$(median5 "$TESSEL" ls "$dir" --fields Name --json)
    t=$(median5 "$TESSEL" ls "$dir" --fields Name,27,28,29,30,31,32 --json)
    row "tessel ls, Name and the metadata columns" "$t" "tessel ls --fields Name" "$names"
}

cards() {
    [ -x "$CARDS" ] || { echo "compare: cards needs $CARDS (build the benchmarks)" >&2; return 1; }
    local card="$work/p2"
    "$CARDS" p2 "$card" 1000
    echo "== cards: a P2 card of 1,000 clips (5,001 files), beside cat of its clip XML (medians of 5)"
    local t v
    v=$(median5 sh -c 'cat "$1"/CONTENTS/CLIP/*.XML' sh "$card")
    t=$(median5 "$TESSEL" providers "$card")
    row "tessel providers (a ranking pass)" "$t" "cat CONTENTS/CLIP/*.XML" "$v"
    t=$(median5 "$TESSEL" ls "$card")
    row "tessel ls (one item per clip)" "$t" "cat CONTENTS/CLIP/*.XML" "$v"
    t=$(median5 "$TESSEL" ls "$card" --fields all --json)
    row "tessel ls --fields all --json" "$t" "cat CONTENTS/CLIP/*.XML" "$v"
}

sequences() {
    local dir="$work/sequences"
    mkdir -p "$dir"
    # A film scan of 100,000 DPX frames, empty files made as the listing suite makes its files.
    (cd "$dir" && seq -f 'reel1_%07g.dpx' 0 99999 | xargs touch)

    echo "== sequences: a DPX scan of 100,000 frames in one folder, output to /dev/null (medians of 5)"
    local t v
    v=$(median5 ls -1 "$dir")
    # Every provider is asked about the folder: a ranking pass.
    t=$(median5 "$TESSEL" providers "$dir")
    row "tessel providers (a ranking pass)" "$t" "ls -1" "$v"
    # The ranking, then the DPX provider's listing: one item, the first frame.
    t=$(median5 "$TESSEL" ls "$dir")
    row "tessel ls (ranking and listing)" "$t" "ls -1" "$v"
    t=$(median5 "$TESSEL" ls "$dir" --fields Name,duration)
    row "tessel ls, the clip's duration too" "$t" "ls -1" "$v"

    # Neither command examines the frames one by one: each reads the folder (a ranking pass
    # once for every provider, a listing once more) and stats no frame.
    if have strace; then
        local args
        for args in providers ls; do
            strace -f -c -e trace=getdents64,stat,lstat,fstat,newfstatat,statx -o "$work/strace.txt" \
                "$TESSEL" "$args" "$dir" >/dev/null 2>&1 || true
            awk -v command="$args" '
                $NF == "getdents64" { reads = $4 } $NF == "total" { total = $4 }
                END { printf "tessel %s: %d getdents64 calls, %d stat calls in all, for 100,000 frames\n",
                      command, reads, total - reads }' "$work/strace.txt"
        done
    else
        echo "compare: strace missing; system calls not counted"
    fi
}

avchd() {
    [ -x "$CARDS" ] || { echo "compare: avchd needs $CARDS (build the benchmarks)" >&2; return 1; }
    local card="$work/avchd"
    "$CARDS" avchd "$card" 500 10
    local private="$card/PRIVATE" bdmv="$card/PRIVATE/AVCHD/BDMV"

    echo "== avchd: a card of 500 clips in 50 playlists (250 shots), output to /dev/null (medians of 5)"
    local t v
    # Ranking reads the card's fixed names and its STREAM folder; cat reads the playlists.
    v=$(median5 cat "$bdmv"/PLAYLIST/*.MPL)
    t=$(median5 "$TESSEL" providers "$private")
    row "tessel providers (a ranking pass)" "$t" "cat of the 50 playlists" "$v"
    # The listing reads every playlist and each shot's clip information (default columns:
    # shot date, make, model, start timecode).
    v=$(median5 cat "$bdmv"/PLAYLIST/*.MPL "$bdmv"/CLIPINF/*.CPI)
    t=$(median5 "$TESSEL" ls "$private")
    row "tessel ls (250 shots, default columns)" "$t" "cat of the playlists and CLIPINF" "$v"
    t=$(median5 "$TESSEL" ls "$private" --fields Name,Path)
    row "tessel ls --fields Name,Path" "$t" "cat of the playlists and CLIPINF" "$v"
}

for suite in "${suites[@]}"; do
    case "$suite" in
        startup) startup ;;
        thumbnails) thumbnails ;;
        listing) listing ;;
        metadata) metadata ;;
        cards) cards ;;
        sequences) sequences ;;
        avchd) avchd ;;
        *) echo "compare: unknown suite '$suite' (known: startup, thumbnails, listing, metadata, cards, sequences, avchd)" >&2; exit 2 ;;
    esac
done
