# SPDX-License-Identifier: MIT
# Sourced by scripts/demo.sh: the whole assistant loop. The television (tvsim)
# reports the set's far-field microphone and its DSP, the application
# (zorctl listen) completes its initialisation, a wake word is spoken, the
# application streams and saves the utterance, then the middleware taps the
# microphone button and the application's callback runs.

section "The assistant loop: the television talks to the application"

loop_log="$work/listen.log"
loop_wav="$work/utterance.wav"
say_wav="$work/say.wav"

ctl() {
    printf '$ tvsim ctl %s\n' "$*"
    "$tvsim" ctl "$@" || true
}

# The utterance, spoken by espeak-ng and brought to the library's 16 kHz mono.
if command -v espeak-ng > /dev/null && command -v sox > /dev/null; then
    espeak-ng -w "$work/espeak.wav" "alexa, what's the weather" 2> /dev/null
    sox "$work/espeak.wav" -r 16000 -c 1 -b 16 "$say_wav"
else
    sox -n -r 16000 -c 1 -b 16 "$say_wav" synth 1.5 sine 440 2> /dev/null
fi

# Without a far-field device in this build, the application streams from the
# middleware's microphone stream; the utterance then arrives as PCM commands.
"$zorctl" listen --seconds 12 --init-delay 1 --stream-seconds 2 --source middleware \
    --wav "$loop_wav" > "$loop_log" 2>&1 &
listen_pid=$!
for _ in $(seq 100); do
    [ -S "$ZOR_RUNTIME_DIR/oxa.kel.idtv.client.sock" ] && break
    sleep 0.05
done

echo "-- the television describes the set (no far-field device in this run) and"
echo "   reports its DSP ready"
ctl ffm-sup 0 0 0
ctl dsp 1
sleep 1.5

echo "-- the middleware hands the spoken words to the application"
ctl pcm "$say_wav"
ctl language en
echo "-- the user presses the microphone button on the remote"
ctl tap
sleep 3
ctl hold 1
ctl hold 0
sleep 3
ctl query-iot-cert

kill -TERM "$listen_pid" 2> /dev/null || true
wait "$listen_pid" 2> /dev/null || true

echo "-- what the application saw (zorctl listen; its PCM summarised per stream)"
grep '^event:' "$loop_log" || true
if [ -s "$loop_wav" ]; then
    printf -- '-- saved utterance: %s\n' "$(soxi -d "$loop_wav" 2> /dev/null || stat -c %s "$loop_wav") of 16 kHz mono in $(basename "$loop_wav")"
fi
