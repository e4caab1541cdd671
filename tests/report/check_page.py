#!/usr/bin/env python3
"""Opens pages of quorix report in headless Chromium and uses them: they draw, sliders work in every
part of the page, residues and peaks are jumped to, colours follow the system's scheme, the page
begins where a reader looks first, nothing is fetched, and the console stays silent.
Usage: check_page.py MAP_PAGE BOX_OF_DIFFERENCE_PAGE REFLECTIONS_PAGE LIGAND_PAGE [PICTURE]"""
import base64
import io
import json
import sys
import tempfile
import time
from pathlib import Path

import numpy
from PIL import Image
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

FLAGS = ('--headless=new --no-sandbox --disable-gpu --enable-unsafe-swiftshader --disable-quic '
         '--no-first-run --disable-background-networking --disable-component-update '
         '--disable-sync').split()


def contrast(one, other):
    """Of two colours, as the guidelines for legible pages define it."""
    def luminance(colour):
        parts = [byte / 255 for byte in bytes.fromhex(colour[1:])]
        linear = [c / 12.92 if c <= 0.03928 else ((c + 0.055) / 1.055) ** 2.4 for c in parts]
        return numpy.dot([0.2126, 0.7152, 0.0722], linear)
    low, high = sorted([luminance(one), luminance(other)])
    return (high + 0.05) / (low + 0.05)


class Page:
    def __init__(self, path, width=1300, height=1000, more=()):
        options = webdriver.ChromeOptions()
        self.profile = tempfile.TemporaryDirectory()
        for flag in [*FLAGS, *more, f'--window-size={width},{height}',
                     f'--user-data-dir={self.profile.name}']:
            options.add_argument(flag)
        options.set_capability('goog:loggingPrefs', {'browser': 'ALL', 'performance': 'ALL'})
        self.driver = webdriver.Chrome(service=Service('/usr/bin/chromedriver'), options=options)
        self.driver.get(Path(path).absolute().as_uri())
        self.wait(lambda: self.js('return document.body.dataset.ready') == 'yes', 'it is ready')

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.driver.quit()

    def js(self, code, *arguments):
        return self.driver.execute_script(code, *arguments)

    def wait(self, condition, what, seconds=60):
        end = time.monotonic() + seconds
        while not condition():
            assert time.monotonic() < end, f'waited in vain until {what}: {self.console()}'
            time.sleep(0.1)

    def text(self, name):
        return self.driver.find_element(By.ID, name).text

    def attribute(self, name, attribute):
        return self.driver.find_element(By.ID, name).get_attribute(attribute)

    def set(self, name, value, event='input'):
        self.js('const e = document.getElementById(arguments[0]); e.value = arguments[1];'
                'e.dispatchEvent(new Event(arguments[2], {bubbles: true}));', name, value, event)

    def pixels(self, name):
        picture = self.driver.find_element(By.ID, name).screenshot_as_png
        return numpy.asarray(Image.open(io.BytesIO(picture)).convert('RGB')).astype(int)

    def prefer(self, scheme):
        self.driver.execute_cdp_cmd('Emulation.setEmulatedMedia',
                                    {'features': [{'name': 'prefers-color-scheme', 'value': scheme}]})

    def expect_view_on(self, background):
        """The three-dimensional view on white or black, all contours in sight against it."""
        drawn = self.colours()
        assert min(drawn['blue'], drawn['green'], drawn['red']) > 50, (background, drawn)
        assert (numpy.median(self.pixels('viewer'), axis=(0, 1)) == background).all(), background
        for name in ('map_den', 'map_pos', 'map_neg', 'fg'):
            colour = '#' + self.js('return viewer.config.colors[arguments[0]].getHexString()', name)
            assert contrast(colour, '#' + 3 * f'{background:02x}') >= 3, (name, colour, background)
            styled = self.js('return getComputedStyle(document.documentElement).getPropertyValue(arguments[0])', f'--view-{name}')
            assert styled == colour, (name, styled)

    def colours(self):
        """Counts of blue, green and red pixels in the three-dimensional view."""
        time.sleep(0.3)  # the next frame
        pixels = self.pixels('viewer')
        strongest = pixels.argmax(axis=2)
        strong = pixels.max(axis=2) - numpy.median(pixels, axis=2) > 25
        red, green, blue = (int((strong & (strongest == c)).sum()) for c in range(3))
        return {'red': red, 'green': green, 'blue': blue}

    def contours(self):
        return self.js('return [...document.querySelectorAll("#contours path.contour")]'
                       '.map((p) => p.getAttribute("d")).join("")')

    def console(self):
        # Taking the picture of a page makes the browser remark on itself.
        return [entry for entry in self.driver.get_log('browser')
                if 'GPU stall due to ReadPixels' not in entry['message']]

    def expect_silence(self):
        said, fetched = self.console(), self.fetched()
        assert said == [] and fetched == [], (said, fetched)

    def fetched(self):
        urls = []
        for entry in self.driver.get_log('performance'):
            message = json.loads(entry['message'])['message']
            if message['method'] == 'Network.requestWillBeSent':
                urls.append(message['params']['request']['url'])
        return [url for url in urls if url.startswith(('http', 'ws', 'ftp'))]


    def press(self, key, target=None):
        (target or self.driver.switch_to.active_element).send_keys(key)

    def canvas(self):
        return self.driver.find_element(By.CSS_SELECTOR, '#viewer canvas')

    def shown(self, name):
        return self.driver.find_element(By.ID, name).is_displayed()

    def zoom(self):
        return self.js('return viewer.camera.zoom')

    def distance_to(self, text):
        """Of the view's centre from the residue or peak that the page calls so."""
        return self.js('''const place = residues.find((r) => r.text === arguments[0]) ||
                          report.peaks.find((p) => p.height.toFixed(1) === arguments[0]);
                          return Math.hypot(...place.xyz.map((v, a) => v - viewer.target['xyz'[a]]));''', text)

    def farthest_mesh(self):
        """Of the contours from the view's centre."""
        return self.js('''const {x, y, z} = viewer.target, c = [x, y, z]; let most = 0;
            for (const bag of viewer.map_bags) for (const o of bag.el_objects) {
              const at = o.geometry.attributes.position.array, index = o.geometry.index.array;
              for (const v of index) {
                most = Math.max(most, Math.hypot(at[3 * v] - c[0], at[3 * v + 1] - c[1], at[3 * v + 2] - c[2]));
              }
            } return most;''')


def use_map(path):
    with Page(path) as page:
        drawn = page.colours()
        assert drawn['blue'] > 5000, drawn
        assert page.text('level-text') == '1.50 rms = 0.774 e/Å³', page.text('level-text')
        marker, contours = page.attribute('marker', 'd'), page.contours()
        share, section = page.text('above'), page.text('section-text')

        page.set('level', 4)
        assert page.text('level-text').startswith('4.00 rms = 2.065'), page.text('level-text')
        higher = page.colours()
        assert higher['blue'] < 0.6 * drawn['blue'], (drawn, higher)
        assert page.attribute('marker', 'd') != marker and page.text('above') != share
        assert len(page.contours()) < 0.6 * len(contours)

        page.js('document.querySelector("#viewer canvas").dispatchEvent('
                'new WheelEvent("wheel", {deltaY: -2000, bubbles: true, cancelable: true}))')
        page.wait(lambda: page.text('level-text').startswith('3.00 rms'), 'the wheel turns the level')

        page.set('level', 1.5)
        page.wait(lambda: page.contours() == contours, 'the contours are those of before')
        page.set('section', 10)
        assert page.contours() != contours and page.text('section-text') != section
        page.set('axis', 'x', 'change')
        assert 'of 90)' in page.text('section-text') and page.contours()
        assert page.js('return document.querySelectorAll("#contours .tick").length') >= 6

        page.set('radius', 5)
        assert page.colours()['blue'] < drawn['blue'] and page.farthest_mesh() <= 5.0
        page.driver.find_element(By.ID, 'negative').click()
        assert page.colours()['red'] > 0 and '% below' in page.text('above')
        assert '6202' not in page.text('above') and 'P 21 21 21' in page.text('header')
        assert page.text('shells').count('%') == 15 and 'Density: scaled to rms 1' in page.text('labels')
        assert 'coot --script' in page.text('scripts')
        page.expect_silence()


def use_keys(page):
    """H without a click; keys that scroll turn the view when it has the focus."""
    page.js('document.activeElement.blur()')
    page.press('h', page.driver.find_element(By.TAG_NAME, 'body'))
    help_box, view = (page.js(f'return document.getElementById("{name}").getBoundingClientRect().toJSON()')
                      for name in ('help', 'view'))
    assert page.shown('help') and help_box['top'] >= view['top'] and help_box['bottom'] <= view['bottom']
    assert help_box['left'] >= view['left'] and help_box['right'] <= view['right'], (help_box, view)
    page.press('h', page.driver.find_element(By.TAG_NAME, 'body'))
    assert not page.shown('help')
    before = page.js('return [viewer.target.x, viewer.target.y, viewer.target.z]')
    page.js('document.querySelector("#viewer canvas").focus({preventScroll: true}); window.scrollTo(0, 0)')
    page.press(Keys.SPACE)
    page.wait(lambda: page.js('return [viewer.target.x, viewer.target.y, viewer.target.z]') != before, 'Space goes to a residue')
    assert page.js('return window.scrollY') == 0


def use_reflections(path, picture):
    with Page(path) as page:
        drawn = page.colours()
        assert min(drawn['blue'], drawn['green'], drawn['red']) > 50, drawn
        assert page.text('level-text').endswith('= 0.774 e/Å³'), page.text('level-text')
        assert page.text('level-text-2').startswith('3.00 rms = 0.'), page.text('level-text-2')
        assert page.text('here').startswith('peak of ') and 'from A/' in page.text('here')
        page.set('level-2', 8)
        assert page.colours()['green'] < 0.2 * drawn['green'], (drawn, page.colours())
        page.set('level-2', 3)

        page.js('document.querySelector("[data-residue=\\"A/ILE 30\\"]").dispatchEvent(new MouseEvent("click", {bubbles: true}))')
        page.wait(lambda: page.distance_to('A/ILE 30') < 0.01, 'the view is at the residue')
        assert page.text('here').startswith('A/ILE 30: correlation 0.9'), page.text('here')
        page.press(Keys.ARROW_RIGHT, page.driver.find_element(By.ID, 'residues'))
        page.press(Keys.ENTER, page.driver.find_element(By.ID, 'residues'))
        page.wait(lambda: page.distance_to('A/GLN 31') < 0.01, 'an arrow and Enter go to the next')
        section = page.text('section-text')
        if picture:
            page.driver.set_window_size(1200, 1400)
            page.js('window.scrollTo(0, 0)')
            time.sleep(1)
            shot = Image.open(io.BytesIO(page.driver.get_screenshot_as_png())).convert('RGB')
            shot.resize((960, 960 * shot.height // shot.width), Image.Resampling.LANCZOS).quantize(192, Image.Quantize.FASTOCTREE).save(
                picture, optimize=True)
            assert Path(picture).stat().st_size < 300_000
        peak = page.driver.find_elements(By.CSS_SELECTOR, '#peaks button')[1]
        height = peak.text.split()[0]
        peak.send_keys(Keys.ENTER)  # as the mouse does
        page.wait(lambda: page.distance_to(height) < 0.01, 'the view is at the peak')
        assert page.text('section-text') != section and page.farthest_mesh() <= 12.0
        page.set('which', 1, 'change')
        assert 'DELFWT' in page.text('labels') and 'Input: 1ubq.mtz' in page.text('labels')
        use_keys(page)
        page.expect_silence()


def use_difference_map(path):
    with Page(path, width=420, height=800, more=['--blink-settings=preferredColorScheme=0']) as page:
        assert page.text('level-text').startswith('3.00 rms')
        assert page.text('here').startswith('the whole') and page.zoom() > 0
        drawn = page.colours()
        assert drawn['red'] > 200 and drawn['green'] > 200, drawn
        wide = page.js('return document.documentElement.scrollWidth')
        assert wide <= page.js('return document.documentElement.clientWidth'), wide
        ink = page.js('return getComputedStyle(document.body).color')
        assert min(int(c) for c in ink[4:-1].split(',')) > 180, ink  # light on dark
        page.expect_silence()


def begin_at_ligand(path):
    """An ion comes before the ligand, and higher peaks lie elsewhere: the ligand is what is looked at."""
    with Page(path) as page:
        assert page.text('here').startswith('B/GOL 201'), page.text('here')
        assert page.distance_to('B/GOL 201') < 0.01
        listed = page.js('return [...document.querySelectorAll("#ligands button")].map((b) => b.lastChild.textContent)')
        assert listed == ['B/ZN 200', 'B/GOL 201'], listed
        middle, edge = page.js('return [here[2] / maps[0].info.cell[2], 1 / maps[0].info.intervals[2]]')
        shown = float(page.text('section-text').split()[2])
        assert abs((shown - middle + 0.5) % 1 - 0.5) <= edge, (shown, middle)
        assert page.js('return document.querySelectorAll("#contours .tick").length') >= 6 and page.contours()
        card = page.js('return document.getElementById("histogram").parentNode').screenshot_as_png
        pixels = numpy.asarray(Image.open(io.BytesIO(card)).convert('RGB')).astype(int)
        drawn = (abs(pixels - pixels[4, 4]).max(axis=2) > 40).mean()
        assert drawn > 0.2, drawn
        page.expect_silence()


def follow_scheme(path):
    """Live, as the system's preference changes; a key may choose otherwise; paper is white."""
    with Page(path, more=['--blink-settings=preferredColorScheme=1']) as page:
        page.expect_view_on(255)
        page.prefer('dark')
        page.wait(lambda: page.js('return viewer.config.color_scheme') == 'dark', 'the view is dark')
        page.expect_view_on(0)
        print_page(page)
        page.js('window.dispatchEvent(new Event("afterprint"))')
        page.expect_view_on(0)
        page.press('b', page.canvas())
        page.expect_view_on(255)
        page.expect_silence()


def print_page(page):
    """On paper stands the view as it was, on white, and no list to click."""
    page.js('window.dispatchEvent(new Event("beforeprint"))')
    head, data = page.attribute('snapshot', 'src').split(',')
    assert head == 'data:image/png;base64' and len(data) > 20000
    pixels = numpy.asarray(Image.open(io.BytesIO(base64.b64decode(data))).convert('RGB'))
    assert (numpy.median(pixels, axis=(0, 1)) == 255).all()
    pdf = base64.b64decode(page.driver.print_page())
    assert pdf.startswith(b'%PDF') and len(pdf) > 50000


def without_webgl(path):
    with Page(path, more=['--disable-3d-apis']) as page:
        assert 'no WebGL' in page.text('hud'), page.text('hud')
        page.set('level', 2)
        assert page.text('level-text').startswith('2.00 rms') and page.contours()


if __name__ == '__main__':
    use_map(sys.argv[1])
    use_difference_map(sys.argv[2])
    use_reflections(sys.argv[3], sys.argv[5] if len(sys.argv) > 5 else None)
    begin_at_ligand(sys.argv[4])
    follow_scheme(sys.argv[3])
    without_webgl(sys.argv[1])
    print('report page: draws, follows sliders, lists, keys and the colour scheme, begins at the ligand, fetches nothing, console silent')
