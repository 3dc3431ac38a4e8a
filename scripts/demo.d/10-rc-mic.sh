# SPDX-License-Identifier: MIT
# Sourced by scripts/demo.sh: the remote control's microphone. A sentence
# spoken by espeak-ng goes into the redirected capture device "hw:0,6" and
# comes back through the library's PCM callback (its own script, with its own
# sound-device directory).

section "The remote control's microphone: a spoken sentence recorded back"
"$root/scripts/demo-rc-mic.sh" "$build" || echo "(the remote-control microphone demo failed)"
