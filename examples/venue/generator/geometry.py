"""Frames in metres, the projection between metres, degrees and map pixels, and the sheets that plans are drawn on.

Site coordinates are metres east and north of the site's survey mark. A Frame is a local drawing board on the site:
x to the right, y downwards, turned and shifted. Angles are degrees that the frame's x axis points north of east."""
import math
from dataclasses import dataclass

STANDARD_PIXELS_PER_METER = 5.0
SURVEY_MARK = (48.2137, -27.4681)  # latitude, longitude; an island that is on no chart
EQUATORIAL_RADIUS, POLAR_RADIUS = 6378137.0, 6356752.3142  # WGS 84, metres


def longitude_length(latitude):
    """Metres in a degree of longitude at a latitude in degrees."""
    reduced = math.atan(POLAR_RADIUS / EQUATORIAL_RADIUS * math.tan(math.radians(latitude)))
    return EQUATORIAL_RADIUS * math.cos(reduced) * math.pi / 180


def latitude_length(latitude):
    """Metres in a degree of latitude at a latitude in degrees."""
    phi = math.radians(latitude)
    return 111132.954 - 559.822 * math.cos(2 * phi) + 1.175 * math.cos(4 * phi)


def rotate(x, y, degrees):
    c, s = math.cos(math.radians(degrees)), math.sin(math.radians(degrees))
    return x * c + y * s, -x * s + y * c


def site_to_geographic(east, north):
    latitude, longitude = SURVEY_MARK
    return latitude + north / latitude_length(latitude), longitude + east / longitude_length(latitude)


@dataclass(frozen=True)
class Frame:
    east: float  # of the frame's origin, metres
    north: float
    angle: float

    def to_site(self, x, y):
        dx, dy = rotate(x, -y, -self.angle)
        return self.east + dx, self.north + dy

    def from_site(self, east, north):
        x, y = rotate(east - self.east, north - self.north, self.angle)
        return x, -y

    def frame_at(self, x, y, turn):
        """A frame with its origin at (x, y) of this one, its x axis turned anticlockwise by `turn` degrees."""
        return Frame(*self.to_site(x, y), self.angle + turn)


@dataclass(frozen=True)
class Sheet:
    """One map: a rectangle of a frame, drawn at a scale of its own."""
    map_id: str
    name: str
    frame: Frame
    left: float  # of the picture in the frame, metres; so are the next five
    top: float
    width: float
    height: float
    reference: tuple  # the point whose latitude and longitude the map states
    overlay_origin: tuple  # the point that taps are measured from
    pixels_per_meter: float
    floor: int
    elevation: float  # of the floor above the site, metres
    geolocation: bool = False
    crop_height: float = 0.0  # metres; 0 shows the whole picture

    def image_size(self):
        return round(self.width * self.pixels_per_meter), round(self.height * self.pixels_per_meter)

    def image_point(self, frame, x, y):
        """Where a point of any frame lies on the picture, in image pixels."""
        u, v = self.frame.from_site(*frame.to_site(x, y))
        return (u - self.left) * self.pixels_per_meter, (v - self.top) * self.pixels_per_meter

    def offset(self, point):
        return [(point[0] - self.left) * self.pixels_per_meter, (point[1] - self.top) * self.pixels_per_meter]

    def configuration(self):
        """The sheet's member of the map configuration document."""
        latitude, longitude = site_to_geographic(*self.frame.to_site(*self.reference))
        corner, overlay = self.offset(self.reference), self.offset(self.overlay_origin)
        width, height = self.image_size()
        result = {
            'name': self.name, 'file_path': f'plans/{self.map_id}.svg',
            'latitude': round(latitude, 9), 'longitude': round(longitude, 9),
            'rotation_degrees': round(self.frame.angle, 6), 'pixels_per_meter': self.pixels_per_meter,
            'map_pixel_width': width, 'map_pixel_height': height,
            'map_corner_offset_x': round(corner[0], 3), 'map_corner_offset_y': round(corner[1], 3),
            'overlay_pixel_offset_x': round(overlay[0], 3), 'overlay_pixel_offset_y': round(overlay[1], 3),
            'hide_map': False, 'geolocation_enabled': self.geolocation}
        if self.crop_height:
            result['crop_width'] = width
            result['crop_height'] = round(self.crop_height * self.pixels_per_meter)
        return result


def geographic_to_pixel(configuration, latitude, longitude):
    """Standard pixels of a coordinate on the map that a member of the map configuration document describes."""
    scale = STANDARD_PIXELS_PER_METER / configuration['pixels_per_meter']
    east = (longitude - configuration['longitude']) * longitude_length(configuration['latitude'])
    north = (latitude - configuration['latitude']) * latitude_length(configuration['latitude'])
    x, y = rotate(east, north, configuration['rotation_degrees'])
    return (x * STANDARD_PIXELS_PER_METER + configuration['map_corner_offset_x'] * scale,
            -y * STANDARD_PIXELS_PER_METER + configuration['map_corner_offset_y'] * scale)


def pixel_to_geographic(configuration, x, y):
    """The inverse of geographic_to_pixel."""
    scale = STANDARD_PIXELS_PER_METER / configuration['pixels_per_meter']
    u = (x - configuration['map_corner_offset_x'] * scale) / STANDARD_PIXELS_PER_METER
    v = -(y - configuration['map_corner_offset_y'] * scale) / STANDARD_PIXELS_PER_METER
    east, north = rotate(u, v, -configuration['rotation_degrees'])
    return (configuration['latitude'] + north / latitude_length(configuration['latitude']),
            configuration['longitude'] + east / longitude_length(configuration['latitude']))
