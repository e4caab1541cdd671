#!/usr/bin/env python3
"""Opens pages of quorix report in headless Chromium and uses them: they draw, the slider works in
every part of the page, nothing is fetched, and the console stays silent.
Usage: check_page.py MAP_PAGE DIFFERENCE_PAGE"""
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

FLAGS = ('--headless=new --no-sandbox --disable-gpu --enable-unsafe-swiftshader --disable-quic '
         '--no-first-run --disable-background-networking --disable-component-update '
         '--disable-sync').split()


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

    def colours(self):
        """Counts of blue, green and red pixels in the three-dimensional view."""
        time.sleep(0.3)  # the next frame
        picture = self.driver.find_element(By.ID, 'viewer').screenshot_as_png
        pixels = numpy.asarray(Image.open(io.BytesIO(picture)).convert('RGB')).astype(int)
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


def use_map(path):
    with Page(path) as page:
        drawn = page.colours()
        assert drawn['blue'] > 5000, drawn
        assert page.text('level-text') == '1.50 rms = 0.774 e/Å³', page.text('level-text')
        marker, contours = page.attribute('marker', 'd'), page.contours()
        share = page.text('above')

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
        assert page.contours() != contours and '(point 10 of 48)' in page.text('section-text')
        page.set('axis', 'x', 'change')
        assert '(point 45 of 90)' in page.text('section-text') and page.contours()

        page.set('radius', 5)
        assert page.colours()['blue'] < drawn['blue']
        page.driver.find_element(By.ID, 'negative').click()
        assert page.colours()['red'] > 0 and '% below' in page.text('above')
        assert '6202' not in page.text('above') and 'P 21 21 21' in page.text('header')
        assert page.text('shells').count('%') == 15 and 'Input:' in page.text('labels')
        assert 'coot --script' in page.text('scripts')
        page.expect_silence()


def use_difference_map(path):
    with Page(path, width=420, height=800) as page:
        assert page.text('level-text').startswith('3.00 rms')
        drawn = page.colours()
        assert drawn['red'] > 200 and drawn['green'] > 200, drawn
        wide = page.js('return document.documentElement.scrollWidth')
        assert wide <= page.js('return document.documentElement.clientWidth'), wide
        page.expect_silence()


def without_webgl(path):
    with Page(path, more=['--disable-3d-apis']) as page:
        assert 'no WebGL' in page.text('hud'), page.text('hud')
        page.set('level', 2)
        assert page.text('level-text').startswith('2.00 rms') and page.contours()


if __name__ == '__main__':
    use_map(sys.argv[1])
    use_difference_map(sys.argv[2])
    without_webgl(sys.argv[1])
    print('report page: draws, follows the slider, fetches nothing, console silent')
