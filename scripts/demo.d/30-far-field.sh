# SPDX-License-Identifier: MIT
# Sourced by scripts/demo.sh: the hands-free road. The far-field board (played
# by tvsim --xmos) hears "alexa, what's the weather"; the library cuts the
# keyword with half a second of pre-roll out of its 15-second ring, tells the
# application where the keyword lies, and streams what follows.

section "Hands-free: a wake word through the far-field microphone"

ffm_log="$work/listen-ffm.log"
ffm_wav="$work/utterance-ffm.wav"

ZOR_XMOS_DEVICE="$ZOR_RUNTIME_DIR/xmos.sock" "$zorctl" listen --seconds 12 --init-delay 1 \
    --stream-seconds 3 --source ffm --wav "$ffm_wav" > "$ffm_log" 2>&1 &
ffm_pid=$!
for _ in $(seq 100); do
    [ -S "$ZOR_RUNTIME_DIR/oxa.kel.idtv.client.sock" ] && break
    sleep 0.05
done

echo "-- the television reports a far-field microphone on card 1, device 2, and its DSP ready"
"$tvsim" ctl ffm-sup 1 1 2
"$tvsim" ctl dsp 1
sleep 2.5
echo "-- the user says: alexa, what's the weather"
"$tvsim" ctl say-text "alexa, what's the weather"
sleep 5
"$tvsim" ctl dsp 0

wait "$ffm_pid" 2> /dev/null || true
echo "-- what the application saw"
grep '^event:' "$ffm_log" || true
if [ -s "$ffm_wav" ]; then
    printf -- '-- saved utterance: %s of 16 kHz mono in %s\n' \
        "$(soxi -d "$ffm_wav" 2> /dev/null || stat -c %s "$ffm_wav")" "$(basename "$ffm_wav")"
fi
