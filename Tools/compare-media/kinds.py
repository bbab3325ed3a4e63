"""Which files are media, and of what kind, by what exiftool and ffprobe say."""
import os

KINDS = {0: "image", 1: "video", 2: "audio", 3: "audio", 4: "other"}  # item.type

# By extension: nobody wants these on a media device, and nobody asks the tools about them.
# Programs and texts; ffprobe takes several of them for subtitles or teletext.
NO_MEDIA = set("""
 c h cc cpp hpp cxx hxx inl m mm cs java go rs py pyc pl pm t rb js mjs css scss html htm xhtml
 php sh bash bat cmake in am ac m4 mk make pro pri sln vcproj vcxproj filters dsp dsw def rc spec
 patch diff json yml yaml toml cfg conf ini xml xsl xsd dtd qml qrc ui lua vala glsl asm s
 txt md rst log csv tsv po pot tex texi man 1 3 5 info lock sum svn git ignore license
 dox doxy qdoc qdocinc els tmpl bib gperf awk sed vim tcl hs lhs d f90 ml lisp el cl scm
 pyi csproj gradle adoc page pas desktop install build frag vert hh config doctree pkl
 gz bz2 xz zip tar 7z rar jar deb rpm exe dll so a o obj lib class pdb gmo mo icm icc
 """.split())
# Fonts.
NO_MEDIA |= {"ttf", "otf", "ttc", "pfb", "woff", "woff2", "bdf", "pcf"}
# Playlists: they name media, and hold none.
NO_MEDIA |= {"m3u", "m3u8", "pls", "cue", "asx", "xspf", "wpl"}
# Subtitles and lyrics.
NO_MEDIA |= {"srt", "sub", "ssa", "ass", "vtt", "smi", "idx", "lrc", "kate"}
# Designs and documents, which a program for that purpose opens.
NO_MEDIA |= {"ps", "eps", "epsf", "epsi", "ai", "pdf", "psd", "psb", "xcf", "djvu", "djv", "indd",
             "doc", "docx", "xls", "xlsx", "ppt", "pptx", "odt", "odp", "odg", "rtf", "key", "pages",
             "dwg", "dxf", "vsd", "cdr", "fig", "kra", "ora", "swf"}
# Pictures as source code of programs, and mouse pointers.
NO_MEDIA |= {"xpm", "xbm", "cur", "ani"}
# Textures of games, and what studios, scanners, cameras for research and old workstations write.
NO_MEDIA |= {"dds", "jng", "mng", "sgi", "rgb", "bw", "hdr", "dpx", "exr", "pict", "pct", "xwd", "ras", "pgf",
             "pcd", "im1", "im8", "im24", "pgx", "pfm", "msp", "lfp", "psp", "pmp", "jxr"}
# Measurements of science, which only a program for that purpose can show.
NO_MEDIA |= {"fits", "fit", "mrc", "dcm", "dic", "czi", "mat"}
# Names that tests made up, and data of all sorts: like a name without an extension, they say nothing.
NO_MEDIA |= {"bin", "dat", "ok", "id3", "gif87", "bmp24"}
NO_MEDIA |= {before + "gd" for before in ("e", "c1", "c2", "c3", "i1", "i2", "i3")}
# Sound libraries of instruments, and metadata apart from its file.
NO_MEDIA |= {"sf2", "pat", "xmp", "mie", "exv", "vrd"}

# By content, whatever the extension: exiftool's FileType and ffprobe's format.
NO_MEDIA_TYPES = {"PS", "EPS", "AI", "PDF", "PSD", "PSB", "PSDT", "XCF", "DJVU", "INDD", "DWG", "DXF", "VSD",
                  "SWF", "XMP", "MIE", "EXV", "ICC", "M3U", "TXT", "HTML", "XPM", "XBM", "FPF",
                  "DOC", "PPT", "XLS", "FPX"}
# Text, subtitles, playlists; and formats without a signature, which ffprobe guesses.
NO_MEDIA_FORMATS = {"tty", "srt", "ass", "webvtt", "microdvd", "subviewer", "subviewer1", "sami",
                    "realtext", "mpl2", "mpsub", "jacosub", "vplayer", "pjs", "stl", "lrc", "scc", "sup",
                    "ffmetadata", "concat", "hls", "dash", "bin", "adf", "idf", "xbin", "data",
                    "rawvideo", "vobsub", "aqtitle", "psxstr", "xpm_pipe", "xbm_pipe", "psd_pipe",
                    "svg_pipe", "sdp", "rtsp", "sub", "txd", "bintext", "loas", "g729", "mcc"}
# ffprobe's formats for pictures; one that moves (GIF, APNG, WebP) is still a picture.
PICTURE_FORMATS = {"gif", "apng", "ico", "image2", "png_pipe", "fits", "msp"}
MIN_PROBE_SCORE = 50  # less is a guess


def is_worth_asking(path):
    """Names without an extension are left out: the service goes by the extension, on purpose."""
    stem, dot, extension = os.path.basename(path).rpartition(".")
    extension = extension.lower()
    return bool(stem and dot) and not extension.isdigit() and extension not in NO_MEDIA and not path.endswith("~")


def exif_kind(exif):
    mime = str(exif.get("File:MIMEType", ""))
    if exif.get("File:FileType") in NO_MEDIA_TYPES or mime.startswith("audio/x-mpegurl"):
        return None
    sized = exif.get("Composite:ImageSize") or any(
        key.endswith((":Duration", ":ImageWidth", ":SampleRate", ":AudioSampleRate")) for key in exif)
    kind = mime.split("/")[0]
    if kind == "video" and not exif.get("Composite:ImageSize") and any("AudioSampleRate" in key for key in exif):
        kind = "audio"
    return kind if sized and kind in ("image", "video", "audio") else None


def moving_streams(probe):
    return [stream for stream in probe.get("streams", ()) if stream.get("codec_type") == "video"
            and not stream.get("disposition", {}).get("attached_pic")]


def is_picture_format(probe):
    name = probe.get("format", {}).get("format_name", "")
    return name in PICTURE_FORMATS or name.endswith("_pipe")


def probe_kind(probe):
    form = probe.get("format", {})
    if form.get("format_name", "") in NO_MEDIA_FORMATS or form.get("probe_score", 0) < MIN_PROBE_SCORE:
        return None
    pictures = moving_streams(probe)
    if is_picture_format(probe):
        return "image" if any(stream.get("width") for stream in pictures) else None
    if any(stream.get("width") for stream in pictures):
        return "video"
    sounds = [s for s in probe.get("streams", ()) if s.get("codec_type") == "audio"]
    return "audio" if any(int(s.get("sample_rate", 0)) > 0 for s in sounds) else None


def media_kind(path, exif, probe):
    """"image", "video", "audio", or None for a file that is no media or too broken to be read."""
    if not is_worth_asking(path) or exif.get("File:FileType") in NO_MEDIA_TYPES:
        return None
    by_exif, by_probe = exif_kind(exif), probe_kind(probe)
    # exiftool goes by the container ("video/mp4" without a picture in it), ffprobe by what is in it;
    # but to ffprobe some pictures are films of one frame.
    is_picture = by_exif == "image" or exif.get("File:FileType") in ("HEIC", "HEIF", "AVIF")
    return "image" if is_picture and (by_exif or by_probe) else by_probe or by_exif
