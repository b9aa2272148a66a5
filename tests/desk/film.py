"""A film for Chromium's fake camera: samples and after each a grey wall, over and over.

Outside of the middle square, which is all that the terminal sees, it is white with a sample and black with the
wall, so that a page can tell when a code came before the camera.
"""
import io
import pathlib

from PIL import Image, ImageOps

SAMPLES = pathlib.Path(__file__).parents[2] / "samples"
NAMES = ["badge", "rotated", "glare", "code128", "uneven-light", "inverted"]
SIZE = (640, 480)
VIEW = (400, 400)    # what the page sends of it, at this quality
VIEW_QUALITY = 85
FRAMES_PER_S = 30    # Chromium's, for a file of JPEG pictures
SHOWN_S = 2
WALL_S = 1           # several readings, so that the service forgets the last text
SCENE_S = SHOWN_S + WALL_S


def sample(name):
    return next(path for path in SAMPLES.glob(name + ".*") if path.suffix != ".txt")


def text_of(name):
    return (SAMPLES / (name + ".txt")).read_text(encoding="utf-8").rstrip("\n")


def frame(name=None, sent=False):
    """A JPEG picture of the film, or what the page sends of it."""
    square = Image.new("RGB", (SIZE[1], SIZE[1]), (128, 128, 128))
    if name:
        card = ImageOps.contain(Image.open(sample(name)).convert("RGB"), square.size)
        square.paste(card, ((square.width - card.width) // 2, (square.height - card.height) // 2))
    picture = square.resize(VIEW) if sent else Image.new("RGB", SIZE, "white" if name else "black")
    if not sent:
        picture.paste(square, ((SIZE[0] - square.width) // 2, 0))
    file = io.BytesIO()
    picture.save(file, "JPEG", quality=VIEW_QUALITY if sent else 95)
    return file.getvalue()


def write(path):
    scenes = (frame(name) * SHOWN_S * FRAMES_PER_S + frame() * WALL_S * FRAMES_PER_S for name in NAMES)
    path.write_bytes(b"".join(scenes))
