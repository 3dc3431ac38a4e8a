#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""A scripted session between an assistant application and tvsim, both
capturing every frame, decoded with the generated Wireshark dissector (tshark)
and with `zorctl decode`.

The application sends commands of every outbound class; tvsim sends every
inbound command id to it. Every frame of both captures must be named, and the
fields of the requests must equal what was sent.

usage: capture_decode_test.py TVSIM APP ZORCTL DISSECTOR
"""
import os
import shutil
import signal
import stat
import struct
import subprocess
import sys
import tempfile
import time
import wave
import xml.etree.ElementTree as ElementTree

TVSIM, APP, ZORCTL, DISSECTOR = sys.argv[1:5]
FAILURES = []


def check(condition, message):
    if not condition:
        FAILURES.append(message)
        print("FAIL: " + message, flush=True)


# What the application sends (capture_session_app.cpp), as the fields of each
# request: command name -> {field: shown value}.
OUTBOUND_REQUESTS = {
    "OXA_TV_CMD_ID_AVS_INFORM_STATES": {"zmup.word.value": "3"},
    "OXA_TV_CMD_ID_AVS_LOAD_URL_WINDOW": {
        "zmup.url_window.u32WindowParam": "7",
        "zmup.url_window.u32WindowType": "2",
        "zmup.url_window.c8URL": "https://example.test/window?x=1",
        "zmup.url_window.u8Background": "1",
    },
    "OXA_TV_CMD_ID__VOICE_CTRL_SetBrowerCerts": {
        "zmup.browser_certs.pcData1_len": "9",
        "zmup.browser_certs.pcData1": "cert-one",
        "zmup.browser_certs.pcData2": "cert-two",
        "zmup.browser_certs.pcData3": "cert-three",
        "zmup.browser_certs.pcSubjectName_len": "13",
        "zmup.browser_certs.pcSubjectName": "subject-name",
    },
    "OXA_TV_CMD_ID_VIDEO_TuneToInputSrc": {
        "zmup.str_info.c8Str": "HDMI 2",
        "zmup.str_info.u32StrLen": "6",
    },
    "OXA_TV_CMD_ID_VIDEO_GetInputSouceListLen": {},
    "OXA_TV_CMD_ID_AUDIO_SetVolume": {"zmup.word.value": "37"},
    "OXA_TV_CMD_ID_AUDIO_GetVolume": {"zmup.word.value": "0"},
    "OXA_TV_CMD_ID_CHANNEL_ChangeToChannel": {
        "zmup.channel_change_req.u32Param1": "101",
        "zmup.channel_change_req.u16Param1": "1",
        "zmup.channel_change_req.u16Param2": "2",
        "zmup.channel_change_req.u16Param3": "3",
        "zmup.channel_change_req.u16Param4": "4",
        "zmup.channel_change_req.u32Param2": "7",
        "zmup.channel_change_req.c8ChannelName": "BBC One",
    },
    "OXA_TV_CMD_ID_CHANNEL_TuneToChannel_2": {
        "zmup.string.length": "7",
        "zmup.string.text": "BBC Two",
    },
    "OXA_TV_CMD_ID_CHANNEL_GetNumberofChannels": {},
    "OXA_TV_CMD_ID_CHANNEL_GetChannelList": {},
    "OXA_TV_CMD_ID_SYSTEM_SetAVSToken": {
        "zmup.avs_token.c8Token": "Atza|token-for-the-capture-test",
        "zmup.avs_token.s32TokenLen": "31",
    },
    "OXA_TV_CMD_ID_SYSTEM_getFWversion": {},
    "OXA_TV_CMD_ID_MISC_StartSmartTVApp": {
        "zmup.smarttv_app_req.stCommand.c8Str": "play",
        "zmup.smarttv_app_req.stCommand.u32StrLen": "4",
        "zmup.smarttv_app_req.stAppName.c8Str": "YouTube",
        "zmup.smarttv_app_req.stAppName.u32StrLen": "7",
        "zmup.smarttv_app_req.i4AppParam": "-5",
    },
    "OXA_TV_CMD_ID_MISC_GetOptionBits": {},
}

# What tvsim sends: console command -> (command name, {field: shown value}).
INBOUND = [
    ("activate", "OXA_CMD_ID_AVS_ACTIVATE_AVS", {}),
    ("enable 2", "OXA_CMD_ID_AVS_ENABLE_DISABLE_AVS",
     {"zmup.OXA_CMD_ID_AVS_ENABLE_DISABLE_AVS.type": "2"}),
    ("ui-status 3 9", "OXA_CMD_ID_AVS_REPORT_UI_STATUS",
     {"zmup.OXA_CMD_ID_AVS_REPORT_UI_STATUS.status": "3",
      "zmup.OXA_CMD_ID_AVS_REPORT_UI_STATUS.value": "9"}),
    ("language de", "OXA_CMD_ID_AVS_USER_CHANGE_LANGUAGE",
     {"zmup.OXA_CMD_ID_AVS_USER_CHANGE_LANGUAGE.code": "de"}),
    ("country GB", "OXA_CMD_ID_AVS_USER_CHANGE_COUNTRY",
     {"zmup.OXA_CMD_ID_AVS_USER_CHANGE_COUNTRY.code": "GB"}),
    ("pcm {wav}", "OXA_CMD_ID_AVS_SEND_AUDIO_PCM_DATA",
     {"zmup.OXA_CMD_ID_AVS_SEND_AUDIO_PCM_DATA.samples": "100"}),
    ("tap", "OXA_CMD_ID_AVS_MIC_BUTTON_TAPPED", {}),
    ("reset 1", "OXA_CMD_ID_AVS_REST_AVS", {"zmup.OXA_CMD_ID_AVS_REST_AVS.state": "1"}),
    ("power 5", "OXA_CMD_ID_AVS_SET_POWER_MODE", {"zmup.OXA_CMD_ID_AVS_SET_POWER_MODE.mode": "5"}),
    ("button-type 2", "OXA_CMD_ID_AVS_SET_BUTTON_TAPPED_TYPE",
     {"zmup.OXA_CMD_ID_AVS_SET_BUTTON_TAPPED_TYPE.type": "2"}),
    ("debug 1", "OXA_CMD_ID_AVS_SET_DEBUG_LEVEL", {"zmup.OXA_CMD_ID_AVS_SET_DEBUG_LEVEL.level": "1"}),
    ("hold 1", "OXA_CMD_ID_AVS_MIC_BUTTON_HOLD", {"zmup.OXA_CMD_ID_AVS_MIC_BUTTON_HOLD.mode": "1"}),
    ("timezone", "OXA_CMD_ID_AVS_SET_TIME_ZONE", {}),
    ("ffm-sup 0 -1 6", "OXA_CMD_ID_AVS_SET_FFM_SUP",
     {"zmup.OXA_CMD_ID_AVS_SET_FFM_SUP.u8Sup": "0",
      "zmup.OXA_CMD_ID_AVS_SET_FFM_SUP.c8CardID": "-1",
      "zmup.OXA_CMD_ID_AVS_SET_FFM_SUP.c8DevID": "6"}),
    ("action-button", "OXA_CMD_ID_AVS_NOTIFY_ACTIONBUTTON_PRESSED", {}),
    ("dsp 4", "OXA_CMD_ID_AVS_NOTIFY_AUDDSP_STATUS",
     {"zmup.OXA_CMD_ID_AVS_NOTIFY_AUDDSP_STATUS.status": "4"}),
    ("xmos-mic 1", "OXA_CMD_ID_AVS_NOTIFY_XMOSMICBUTTON_ON",
     {"zmup.OXA_CMD_ID_AVS_NOTIFY_XMOSMICBUTTON_ON.on": "1"}),
    ("control-changed 6", "OXA_CMD_ID_VOICE_CTRL_INFORM_CONTROL_CHANGED",
     {"zmup.OXA_CMD_ID_VOICE_CTRL_INFORM_CONTROL_CHANGED.type": "6"}),
    ("cert-changed renewed certificate", "OXA_CMD_ID_VOICE_CTRL_INFORM_TEVORA_CERT_CHANGED",
     {"zmup.OXA_CMD_ID_VOICE_CTRL_INFORM_TEVORA_CERT_CHANGED.text": "renewed certificate"}),
    ("query-iot-cert", "OXA_CMD_ID_VOICE_CTRL_QUERY_FOR_IOT_CERTIFICATE", {}),
    ("softmic 1", "OXA_CMD_ID_VOICE_CTRL_FFM_YOUTUBE_SOFTMIC_STATUS",
     {"zmup.OXA_CMD_ID_VOICE_CTRL_FFM_YOUTUBE_SOFTMIC_STATUS.status": "1"}),
    ("ga-activate", "OXA_CMD_ID_GA_ACTIVATE_GA", {}),
    ("ga-enable 1", "OXA_CMD_ID_GA_ENABLE_DISABLE_GA", {"zmup.OXA_CMD_ID_GA_ENABLE_DISABLE_GA.type": "1"}),
    ("ga-ui-status 4 8", "OXA_CMD_ID_GA_REPORT_UI_STATUS",
     {"zmup.OXA_CMD_ID_GA_REPORT_UI_STATUS.status": "4",
      "zmup.OXA_CMD_ID_GA_REPORT_UI_STATUS.value": "8"}),
    ("ga-language fr", "OXA_CMD_ID_GA_USER_CHANGE_LANGUAGE",
     {"zmup.OXA_CMD_ID_GA_USER_CHANGE_LANGUAGE.code": "fr"}),
    ("ga-country FR", "OXA_CMD_ID_GA_USER_CHANGE_COUNTRY",
     {"zmup.OXA_CMD_ID_GA_USER_CHANGE_COUNTRY.code": "FR"}),
    ("ga-reset 2", "OXA_CMD_ID_GA_REST_GA", {"zmup.OXA_CMD_ID_GA_REST_GA.state": "2"}),
    ("ga-power 3", "OXA_CMD_ID_GA_NOTIFY_POWER_MODE", {"zmup.OXA_CMD_ID_GA_NOTIFY_POWER_MODE.mode": "3"}),
]


def wait_for(predicate, what, seconds=30):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        if predicate():
            return True
        time.sleep(0.05)
    check(False, "timed out waiting for " + what)
    return False


def dissect(path):
    """The zmup fields of every packet of the capture, as tshark shows them."""
    result = subprocess.run(
        ["tshark", "-n", "-r", path, "-X", "lua_script:" + DISSECTOR, "-T", "pdml"],
        capture_output=True, text=True, timeout=120)
    check(result.returncode == 0, "tshark on %s: %s" % (path, result.stderr.strip()))
    check("Lua" not in result.stderr and "error" not in result.stderr.lower(),
          "tshark complains about the dissector: " + result.stderr.strip())
    packets = []
    for packet in ElementTree.fromstring(result.stdout).iter("packet"):
        fields = {}
        for field in packet.iter("field"):
            name = field.get("name", "")
            if name.startswith("zmup.") or name in ("frame.packet_flags_direction",
                                                   "frame.interface_name"):
                fields.setdefault(name, []).append(field.get("show"))
            if name == "zmup.OXA_CMD_ID_AVS_SEND_AUDIO_PCM_DATA.pcm":
                fields.setdefault("pcm_size", []).append(field.get("size"))
        check("zmup.command_name" in fields, "%s: a packet without zmup fields" % path)
        packets.append(fields)
    return packets


def first(fields, name):
    values = fields.get(name)
    return values[0] if values else None


def direction(packet):
    """1 received, 2 sent, as the packet's flags say."""
    shown = first(packet, "frame.packet_flags_direction")
    return str(int(shown, 0)) if shown else None


def check_capture(path, side, sent):
    """side: "app" or "tv"; sent: the direction flag of the app's requests."""
    mode = stat.S_IMODE(os.stat(path).st_mode)
    check(mode == 0o600, "%s has mode %o, not 600" % (path, mode))
    packets = dissect(path)
    names = [first(p, "zmup.command_name") for p in packets]
    check(all(n and n != "unknown command" for n in names),
          "%s: unnamed frames: %s" % (path, [n for n in names if not n or n.startswith("unknown")]))
    for packet in packets:
        check(first(packet, "zmup.magic") == "0x50554d5a", "%s: bad magic shown" % path)
        check(first(packet, "zmup.class") is not None, "%s: a frame without its class" % path)

    requests = {}
    replies = {}
    for packet in packets:
        kind = first(packet, "zmup.kind")
        target = replies if kind == "3" else requests
        target.setdefault(first(packet, "zmup.command_name"), packet)

    for name, expected in OUTBOUND_REQUESTS.items():
        packet = requests.get(name)
        check(packet is not None, "%s: no request of %s" % (path, name))
        if packet is None:
            continue
        check(direction(packet) == sent,
              "%s: %s request has direction %s" % (path, name,
                                                    first(packet, "frame.packet_flags_direction")))
        check(first(packet, "zmup.inbound") in ("0", "False"), "%s: %s marked inbound" % (path, name))
        for field, value in expected.items():
            check(first(packet, field) == value,
                  "%s: %s %s is %r, not %r" % (path, name, field, first(packet, field), value))
        check(name in replies, "%s: no reply to %s" % (path, name))
        if name in replies:
            check(first(replies[name], "zmup.status") is not None,
                  "%s: the reply to %s has no status word" % (path, name))

    # The class of a command comes with its number and name.
    volume = requests.get("OXA_TV_CMD_ID_AUDIO_SetVolume", {})
    check(first(volume, "zmup.class") == "4 OXA_TV_CMD_CLASS_AUDIO",
          "%s: SetVolume's class is %r" % (path, first(volume, "zmup.class")))
    check(first(volume, "zmup.command") == "0x18040003", "%s: SetVolume's id" % path)
    # A list reply: its elements, one record each.
    # The list asks for the count the television reported, and its reply
    # carries that many channel records.
    count = first(replies.get("OXA_TV_CMD_ID_CHANNEL_GetNumberofChannels", {}), "zmup.word.value")
    check(count is not None and int(count) > 0, "%s: no channel count in the reply" % path)
    listed = requests.get("OXA_TV_CMD_ID_CHANNEL_GetChannelList", {})
    check(first(listed, "zmup.channel_list.u32ChanelNum") == count,
          "%s: the channel list asks for %r channels, not %r" % (
              path, first(listed, "zmup.channel_list.u32ChanelNum"), count))
    channels = replies.get("OXA_TV_CMD_ID_CHANNEL_GetChannelList", {})
    check(str(len(channels.get("zmup.channel_list.c8ChannelName", []))) == count,
          "%s: the channel list reply does not show %r channels" % (path, count))

    for command, name, expected in INBOUND:
        packet = requests.get(name)
        check(packet is not None, "%s: no request of %s" % (path, name))
        if packet is None:
            continue
        received = "1" if sent == "2" else "2"
        check(direction(packet) == received,
              "%s: %s has the wrong direction" % (path, name))
        check(first(packet, "zmup.inbound") in ("1", "True"), "%s: %s not marked inbound" % (path, name))
        for field, value in expected.items():
            check(first(packet, field) == value,
                  "%s: %s %s is %r, not %r" % (path, name, field, first(packet, field), value))
        check(name in replies and first(replies[name], "zmup.result") == "0",
              "%s: the reply to %s does not carry result 0" % (path, name))
    pcm = requests.get("OXA_CMD_ID_AVS_SEND_AUDIO_PCM_DATA", {})
    check(first(pcm, "pcm_size") == "200", "%s: PCM payload of %r bytes" % (path, first(pcm, "pcm_size")))
    return packets


def check_zorctl(path, packets):
    result = subprocess.run([ZORCTL, "decode", path], capture_output=True, text=True, timeout=60)
    check(result.returncode == 0, "zorctl decode %s: %s" % (path, result.stderr.strip()))
    frames = [line for line in result.stdout.splitlines() if line.startswith("#")]
    check(len(frames) == len(packets),
          "zorctl decode shows %d frames, tshark %d" % (len(frames), len(packets)))
    text = result.stdout
    for needle in ("OXA_TV_CMD_ID_AUDIO_SetVolume [class 4 OXA_TV_CMD_CLASS_AUDIO]",
                   "    value = 37",
                   '    c8URL = "https://example.test/window?x=1"',
                   "    stAppName.c8Str = \"YouTube\"",
                   "    c8CardID = -1",
                   "OXA_CMD_ID_GA_NOTIFY_POWER_MODE [class 3 OXV_CMD_CLASS_GA]",
                   "section: pid "):
        check(needle in text, "zorctl decode %s lacks %r" % (path, needle))
    # zorctl gives each frame the name tshark gives it.
    names = [first(p, "zmup.command_name") for p in packets]
    decoded = [line.split()[3] for line in text.splitlines()
               if line.startswith("    ") and len(line.split()) > 3 and line.split()[2].startswith("0x")]
    check(decoded == names, "zorctl decode and tshark name the frames differently")


def check_damaged_files(work, good):
    """zorctl decode refuses what is not a whole pcapng file with one line."""
    with open(good, "rb") as source:
        content = source.read()
    cases = {
        "truncated": content[:len(content) - 7],
        "not pcapng": b"this is not a capture file\n",
        "bad block length": content[:4] + b"\xff\xff\xff\x7f" + content[8:],
    }
    for what, data in cases.items():
        path = os.path.join(work, what.replace(" ", "_") + ".pcapng")
        with open(path, "wb") as out:
            out.write(data)
        result = subprocess.run([ZORCTL, "decode", path], capture_output=True, text=True,
                                timeout=60)
        lines = result.stderr.strip().splitlines()
        check(result.returncode == 1 and len(lines) == 1 and path in lines[0],
              "zorctl decode of a %s file: status %d, stderr %r" % (what, result.returncode,
                                                                   result.stderr))


def check_existing_file_refused(work):
    """ZOR_MUP_CAPTURE never writes into a file that exists."""
    path = os.path.join(work, "existing.pcapng")
    with open(path, "w") as out:
        out.write("keep")
    result = subprocess.run([ZORCTL, "decode", os.path.join(work, "app.pcapng")],
                            env=dict(os.environ, ZOR_MUP_CAPTURE=path), capture_output=True,
                            text=True, timeout=60)
    check(result.returncode == 0, "zorctl with a taken capture file failed: " + result.stderr)
    check("ZOR_MUP_CAPTURE" in result.stderr and "exists" in result.stderr,
          "no line says the capture file exists: %r" % result.stderr)
    with open(path) as kept:
        check(kept.read() == "keep", "the existing file was written")


def main():
    work = tempfile.mkdtemp(prefix="zor-capture-")
    env = dict(os.environ, ZOR_RUNTIME_DIR=work)
    env.pop("ZOR_MUP_CAPTURE", None)
    tv_capture = os.path.join(work, "tv.pcapng")
    app_capture = os.path.join(work, "app.pcapng")
    wav = os.path.join(work, "tone.wav")
    with wave.open(wav, "wb") as out:
        out.setnchannels(1)
        out.setsampwidth(2)
        out.setframerate(16000)
        out.writeframes(b"".join(struct.pack("<h", i * 100) for i in range(100)))

    tvsim_log = open(os.path.join(work, "tvsim.stderr"), "w")
    tvsim = subprocess.Popen([TVSIM, "--capture", tv_capture], env=env, stdin=subprocess.DEVNULL,
                             stdout=subprocess.PIPE, stderr=tvsim_log, text=True)
    app = None
    try:
        started = False
        for line in tvsim.stdout:
            if line.startswith("tvsim: serving"):
                started = True
                break
        check(started, "tvsim did not start")
        wait_for(lambda: os.path.exists(os.path.join(work, "tvsim.control")), "tvsim's control socket")
        app = subprocess.Popen([APP], env=dict(env, ZOR_MUP_CAPTURE=app_capture),
                               stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        for line in app.stdout:
            if line.strip() == "ready":
                break
        for command, name, _ in INBOUND:
            result = subprocess.run([TVSIM, "ctl"] + command.format(wav=wav).split(), env=env,
                                    capture_output=True, text=True, timeout=30)
            check(result.returncode == 0 and result.stdout.startswith("ok"),
                  "tvsim ctl %s: %s %s" % (command, result.stdout.strip(), result.stderr.strip()))
        app.stdin.close()
        check(app.wait(timeout=30) == 0, "the application failed")
    finally:
        if app and app.poll() is None:
            app.kill()
        # Ctrl-C: tvsim stops and completes its capture.
        tvsim.send_signal(signal.SIGINT)
        try:
            tvsim.wait(timeout=30)
        except subprocess.TimeoutExpired:
            tvsim.kill()
            check(False, "tvsim did not stop on SIGINT")
    check(tvsim.returncode == 0, "tvsim exit status %s" % tvsim.returncode)

    for path, side, sent in ((app_capture, "app", "2"), (tv_capture, "tv", "1")):
        packets = check_capture(path, side, sent)
        check_zorctl(path, packets)
    check_damaged_files(work, app_capture)
    check_existing_file_refused(work)

    if FAILURES:
        print("%d checks failed; the captures are in %s" % (len(FAILURES), work))
        return 1
    shutil.rmtree(work, ignore_errors=True)
    print("capture decoded: every command named, every field as sent")
    return 0


if __name__ == "__main__":
    sys.exit(main())
