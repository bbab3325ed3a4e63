"""What a field is called by exiftool and ffprobe, and when two values are the same."""
import math
import re

from kinds import is_picture_format, moving_streams

# Field: the database's columns it needs.
FIELDS = {name: {name} for name in (
    "width", "height", "orientation", "title", "artist", "album", "genre", "composer", "copyright",
    "description", "track", "duration", "bit_rate", "taken", "frame_rate", "altitude", "camera", "lens",
    "rating", "album_artist", "disc", "has_picture")}
FIELDS["position"] = {"latitude", "longitude"}

# exiftool's names. For pictures with the group, as the same name means other things elsewhere.
PICTURE_TEXTS = {
    "title": ["XMP-dc:Title", "IPTC:ObjectName", "IFD0:XPTitle", "PNG:Title"],
    "artist": ["IFD0:Artist", "XMP-dc:Creator", "IPTC:By-line", "IFD0:XPAuthor", "PNG:Author"],
    "copyright": ["IFD0:Copyright", "XMP-dc:Rights", "IPTC:CopyrightNotice", "PNG:Copyright"],
    "description": ["IFD0:ImageDescription", "XMP-dc:Description", "IPTC:Caption-Abstract",
                    "IFD0:XPComment", "ExifIFD:UserComment", "PNG:Description"],
    "lens": ["ExifIFD:LensModel", "XMP-aux:Lens", "XMP-exifEX:LensModel"],
}
# Programs put their signature into these, cameras blanks, so a reader may leave them out.
WEAK_PICTURE_TEXTS = {
    "description": ["File:Comment", "GIF:Comment", "PNG:Comment", "XMP-exif:UserComment",
                    "XMP-tiff:ImageDescription", "IFD0:XPSubject", "XMP-photoshop:Headline"],
    "title": ["IPTC:Headline", "XMP-photoshop:Headline", "ExifIFD:ImageTitle", "IFD0:DocumentName"],
    "artist": ["ExifIFD:CameraOwnerName", "XMP-tiff:Artist"],
    "copyright": ["XMP-tiff:Copyright", "IPTC:CopyrightNotice"],
    "lens": ["Composite:LensID#", "Composite:Lens", "*:LensType", "*:Lens", "*:LensModel"],
    "album": ["XMP-xmpDM:Album"], "genre": ["XMP-xmpDM:Genre"], "composer": ["XMP-xmpDM:Composer"],
}
TEXTS = {
    "title": ["Title", "NIBTitle"], "artist": ["Artist", "Author"], "album": ["Album", "AlbumTitle"],
    "genre": ["Genre#"], "composer": ["Composer"], "copyright": ["Copyright", "CopyrightNotice"],
    "track": ["Track", "TrackNumber"], "album_artist": ["Band", "AlbumArtist", "Albumartist"],
    "disc": ["PartOfSet", "DiskNumber", "Discnumber", "DiscNumber"],
    "description": ["Comment", "Description"],
}
WEAK_TEXTS = {
    "description": ["UserComment", "Comment-xxx", "Comments", "Subtitle", "Synopsis", "LongDescription"],
    "title": ["DisplayName", "TrackName"], "artist": ["Creator", "Performer", "Artists"],
    "copyright": ["Rights"], "genre": ["Genre"], "album_artist": ["AlbumArtistSortOrder"],
    "composer": ["Writer"],
}
PROBE_TEXTS = {
    "title": ["title"], "artist": ["artist", "author"], "album": ["album"], "genre": ["genre"],
    "composer": ["composer"], "copyright": ["copyright"], "description": ["comment", "description"],
    "track": ["track", "tracknumber"], "album_artist": ["album_artist", "albumartist"],
    "disc": ["disc", "discnumber"],
}
TAKEN = ["ExifIFD:DateTimeOriginal", "Composite:SubSecDateTimeOriginal", "XMP-exif:DateTimeOriginal",
         "ExifIFD:CreateDate", "Composite:SubSecCreateDate"]
WEAK_TAKEN = ["IFD0:ModifyDate", "Composite:SubSecModifyDate", "XMP-xmp:CreateDate", "*:DateCreated",
              "XMP-photoshop:DateCreated", "Composite:DateTimeCreated", "*:DateTimeOriginal",
              "PNG:CreationTime", "*:GPSDateTime"]
RECORDED = ["Year", "Date", "RecordingTime", "ContentCreateDate", "DateTimeOriginal", "OriginalReleaseTime"]
# When the file was made: of a film that is when it was taken, of music when it was copied.
MADE = ["CreationDate", "DateCreated", "CreateDate"]
PROBE_RECORDED = ["date", "com.apple.quicktime.creationdate"]
MATCH_LENGTH = 1300  # the database cuts texts at 4096 bytes, which are so many characters at least
ROTATIONS = {0: 1, 90: 6, 180: 3, 270: 8}


def clean(value):
    """A text without what is a matter of taste: blanks, and what stands between the parts of a list."""
    if isinstance(value, (list, tuple)):
        value = ", ".join(map(str, value))
    text = re.sub(r"[\x00-\x1f\x7f-\x9f\s]+", " ", str(value)).strip()
    text = re.sub("[\ufffd\ud800-\udfff]", "?", text)
    return re.sub(r"\s*[;,/]\s*", ", ", text).strip(", ")


def number(value):
    found = re.match(r"\s*(-?\d+(?:\.\d+)?)(?:/(\d+))?", str(value))
    if not found:
        return 0.0
    return float(found[1]) / (float(found[2]) or math.inf) if found[2] else float(found[1])


def numbering(value):
    """ "03/12", "3 of 12" and "3 12" are the same; "3" is the same as "3/0"."""
    parts = [int(part) for part in re.findall(r"\d{1,9}", str(value))]
    while parts and parts[-1] == 0:
        parts.pop()
    return parts


def same_time(ours, theirs):
    """As exact as both are; the difference to UTC counts when both know it."""
    def parts(text):
        found = re.match(r"(\d{4})(?:\D(\d\d))?(?:\D(\d\d))?(?:\D(\d\d)\D(\d\d)(?:\D(\d\d))?)?(?:\.\d+)?"
                         r"(Z|[+-]\d\d:?\d\d)?", text)
        return (found.groups()[:6], (found[7] or "").replace("Z", "+00:00")) if found else ((), "")
    (left, zone), (right, other) = parts(ours), parts(theirs)
    pairs = [(a, b) for a, b in zip(left, right) if a and b]
    return bool(pairs) and all(a == b for a, b in pairs) and (not zone or not other or zone == other)


def near(ours, theirs, absolute, relative):
    return abs(ours - theirs) <= max(absolute, relative * abs(theirs))


def same_value(field, ours, theirs):
    if field == "position":
        return all(near(a, b, 1e-6, 0) for a, b in zip(ours, theirs))
    tolerances = {"duration": (100, 0.01), "bit_rate": (1000, 0.05), "frame_rate": (0.01, 0.002),
                  "altitude": (0.05, 0.001), "width": (0.999, 0), "height": (0.999, 0)}
    if field in tolerances:
        return near(ours, theirs, *tolerances[field])
    if field in ("track", "disc"):
        left, right = numbering(ours), numbering(theirs)
        return left == right if left or right else clean(ours) == clean(theirs)
    if field == "taken":
        return same_time(ours, theirs)
    if field == "camera":
        return clean(ours).lower() == clean(theirs).lower()
    left, right = clean(ours), clean(theirs)
    if sorted(left.split(", ")) == sorted(right.split(", ")):
        return True
    return len(left) >= MATCH_LENGTH and right.startswith(left)


class Answers:
    """The two tools' answers about one file, as values of our fields."""

    def __init__(self, kind, exif, probe):
        self.kind, self.exif, self.probe = kind, exif, probe
        self.tags = {}
        streams = probe.get("streams", [])
        # An Ogg file keeps its tags in the streams; elsewhere a stream's title is not the file's.
        for holder in [probe.get("format", {})] + [
                s for s in streams if "ogg" in probe.get("format", {}).get("format_name", "")]:
            for key, value in holder.get("tags", {}).items():
                self.tags.setdefault(key.lower(), value)

    def named(self, names):
        """exiftool's values: "Group:Name" exactly, "*:Name" and "Name" in any group but ID3v1, whose
        texts are cut at 30 characters: it counts when nothing else is there."""
        if not names:
            return []
        found, cut = [], []
        for name in names:
            if ":" in name and not name.startswith("*"):
                found += [self.exif[name]] if name in self.exif else []
                continue
            for key, value in self.exif.items():
                group, _, tag = key.partition(":")
                if tag == "TrackNumber" and re.match(r"Matroska|Track\d", group):
                    continue  # counts the streams
                # "Comment-eng" is a comment with a language.
                if re.sub(r"-[a-z]{3}(-[A-Z]{2})?(?=#?$)", "", tag) == name.split(":")[-1]:
                    (cut if group.startswith("ID3v1") else found).append(value)
        return found or cut

    def values(self, field, item):
        """Ours, what should be the same, and what may be the same instead; nothing if nobody can tell."""
        ours = (item["latitude"], item["longitude"]) if field == "position" else item[field]
        if field == "bit_rate" and ours < 1000:
            ours = 0
        if field == "position" and not any(ours):
            ours = None
        special = getattr(self, field, None)
        told = special(ours) if special else self.texts(field)
        if field == "title" and ours == item["name"].rpartition(".")[0] and not any(
                same_value("title", ours, one) for group in told for one in group):
            ours = ""  # a file without a title is shown by its name
        return (ours, unique(told[0]), unique(told[1])) if told else (None, [], [])

    def texts(self, field):
        if self.kind == "image":
            strong, weak = self.named(PICTURE_TEXTS.get(field)), self.named(WEAK_PICTURE_TEXTS.get(field))
        else:
            strong, weak = self.named(TEXTS.get(field)), self.named(WEAK_TEXTS.get(field))
            strong += [self.tags[name] for name in PROBE_TEXTS.get(field, ()) if self.tags.get(name)]
        if field == "description":
            # Of several comments any will do; players keep numbers for themselves in some with a name.
            parts = [part for one in strong for part in (one if isinstance(one, list) else [one])]
            strong = [part for part in parts if not re.match(r"\((iTun|Lyrics3)", str(part))]
        return [one for one in strong if clean(one)], [one for one in weak if clean(one)]

    def track(self, ours):
        strong, weak = self.texts("track")
        return [one for one in strong if numbering(one) or not str(one).isdigit()], weak

    def disc(self, ours):
        strong, weak = self.texts("disc")
        return [one for one in strong if numbering(one)], weak

    def genre(self, ours):
        strong, weak = self.texts("genre")
        return [one for one in strong if one not in ("None", "Unknown")], weak

    def size(self, at):
        if self.kind == "audio":
            return [], []
        name = ("Width", "Height")[at]
        told = (str(self.exif.get("Composite:ImageSize", "")) + " 0 0").replace("x", " ").split()[at:at + 1]
        told += [stream.get(name.lower(), 0) for stream in moving_streams(self.probe)]
        if self.exif.get("File:FileType") == "SVG" and not any(map(number, told)):
            told += str(self.exif.get("SVG:ViewBox", "")).replace(",", " ").split()[2 + at:3 + at]
        sizes = self.exif.get("File:Image" + name, 0)  # an icon has many: it is as large as the largest
        told += [max(map(number, sizes))] if isinstance(sizes, list) else []
        return [round(number(one), 3) for one in told if number(one) >= 0.5], []

    def width(self, ours):
        return self.size(0)

    def height(self, ours):
        return self.size(1)

    def orientation(self, ours):
        if self.kind == "image":
            told = [number(one) for one in self.named(["IFD0:Orientation"])]
            told += [number(one) for one in self.named(["XMP-tiff:Orientation"]) if number(one) != 1]
            turned = [ROTATIONS.get(int(number(one))) for one in self.named(["QuickTime:Rotation"])]
            return [int(one) for one in told if 1 <= one <= 8], [one for one in turned if one] + [1] * (ours == 1)
        turns = [int(data["rotation"]) % 360 for stream in moving_streams(self.probe)
                 for data in stream.get("side_data_list", ()) if "rotation" in data]
        # ffprobe counts to the left.
        return [ROTATIONS[-one % 360] for one in turns if one in (90, 180, 270)], [1] * (ours == 1)

    def duration(self, ours):
        if self.kind == "image":
            return [], []
        told = [number(one) * 1000 for one in self.named(["Duration"])]
        told.append(number(self.probe.get("format", {}).get("duration", 0)) * 1000)
        return [round(one) for one in told if one >= 1], []

    def bit_rate(self, ours):
        # Headers and tags are most of a short file, and a picture of any: only some count them as sound.
        streams = self.probe.get("streams", [])
        is_short = max(self.duration(0)[0], default=0) < 10_000
        is_score = self.probe.get("format", {}).get("format_name") == "libopenmpt"  # played at any rate
        if self.kind == "image" or is_short or is_score or any(s.get("disposition", {}).get("attached_pic") for s in streams):
            return None
        told = [number(one.get("bit_rate", 0)) for one in [self.probe.get("format", {})] + streams]
        more = [number(one) for one in self.named(["AudioBitrate", "NominalBitrate", "AvgBitrate", "MaxBitrate"])]
        return [round(one) for one in told if one >= 1000], [round(one) for one in more if one >= 1000]

    def position(self, ours):
        told = [tuple(number(self.exif.get(f"{group}:GPS{name}", 0)) for name in ("Latitude", "Longitude"))
                for group in ("Composite", "XMP-exif")]
        texts = [str(one) for one in self.named(["GPSCoordinates", "LocationInformation"])]
        told += [tuple(float(one) for one in text.split()[:2]) for text in texts
                 if re.match(r"-?[\d.]+ -?[\d.]+", text)]
        for key, value in self.tags.items():
            found = re.match(r"([+-]\d+\.?\d*)([+-]\d+\.?\d*)", str(value))
            if found and key in ("location", "com.apple.quicktime.location.iso6709"):
                told.append((float(found[1]), float(found[2])))
        return [one for one in told if any(one)], []

    def altitude(self, ours):
        return [number(one) for one in self.named(["Composite:GPSAltitude"]) if number(one)], []

    def taken(self, ours):
        if self.kind == "image":
            strong, weak = self.named(TAKEN), self.named(WEAK_TAKEN)
        else:
            strong = self.named(RECORDED) + [self.tags[key] for key in PROBE_RECORDED if key in self.tags]
            weak = self.named(MADE) + [self.tags[key] for key in ("creation_time",) if key in self.tags]
            if self.kind == "video" and not strong:
                strong, weak = weak, []
        # Counters start in 1904, and at 0 they mean nothing.
        return tuple([str(one) for one in told if re.match(r"(?!0000|1904)\d{4}", str(one))]
                     for told in (strong, weak))

    def frame_rate(self, ours):
        if self.kind != "video":
            return [], []
        told = [number(one) for one in self.named(["VideoFrameRate", "FrameRate"])]
        for stream in moving_streams(self.probe):
            told.append(number(stream.get("avg_frame_rate")) or number(stream.get("r_frame_rate")))
        return [round(one, 3) for one in told if one], []

    def camera(self, ours):
        make, model = ([clean(one) for one in self.named([f"IFD0:{name}", f"*:{name}"])
                        if not clean(one).isdigit()] for name in ("Make", "Model"))
        make, model = (make or [""])[0], (model or [""])[0]
        if not model or model.lower().startswith(make.lower().split(" ")[0] or "\0"):
            make, model = "", model or make
        told = [f"{make} {model}".strip()]
        return [one for one in told if one], []

    def rating(self, ours):
        told = [number(one) for one in self.named(["XMP-xmp:Rating", "IFD0:Rating"])]
        # ID3's "name 196 0" is of 255, in steps that everybody took over from one player.
        counts = [re.search(r"(\d+) \d+$", str(one)) for one in self.named(["Popularimeter"])]
        told += [(int(one[1]) + 32) // 64 + 1 for one in counts if one and one[1] != "0"]
        return [int(one) for one in told if 1 <= one <= 5], []

    def has_picture(self, ours):
        if self.kind == "image" or is_picture_format(self.probe):
            return None
        attached = any(stream.get("disposition", {}).get("attached_pic") for stream in self.probe.get("streams", ()))
        pictures = self.named(["Picture", "CoverArt", "CoverArtFront", "PictureMIMEType"])
        return [1] * bool(attached or pictures), []


def unique(values):
    return list(dict.fromkeys(tuple(one) if isinstance(one, list) else one for one in values))
