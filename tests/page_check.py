#!/usr/bin/env python3
"""page_check.py HOST VIEW CAMPAIGN: pages of runs, of a recording, and of a campaign, as a browser
shows and drives them."""

import json
import os
import subprocess
import sys
import tempfile

try:
    from selenium import webdriver
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.support.ui import Select
except ImportError:
    print("python3-selenium is missing, which './dev test' installs")
    sys.exit(77)
if not os.path.exists("/usr/bin/chromedriver"):
    print("chromium-driver is missing, which './dev test' installs")
    sys.exit(77)

# A request without an output breaks H4 in its result; a refused one breaks V23 at the end.
SCENARIO = {
    "shows": "</script><b>texts stay texts</b>",
    "cameras": [
        {"features": ["Night"], "requests": 12, "frames": 4, "width": 320, "height": 240},
        {"features": ["Hdr"], "requests": 2, "frames": 2, "width": 320, "height": 240,
         "output": "none"},
    ],
    "vendor": {"faults": ["fail ExecuteRequest 3 1"]},
}
MANY = {
    "cameras": [{"requests": 300, "frames": 4, "inFlight": 4, "width": 128, "height": 96}],
    "vendor": {"faults": ["fail ExecuteRequest 200 1"]},
}
COLOURS = ["text", "soft", "link", "good", "bad", "warn"]


def run(*command):
    """Statuses are the business of other tests: a failed run has a page, too."""
    done = subprocess.run(command, capture_output=True, text=True, check=False, timeout=120)
    assert done.returncode in (0, 1), done


class Page:
    """A page in a browser of its own."""

    def __init__(self, folder, file, width=1280, scheme="light"):
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for argument in ("headless=new", "no-sandbox", "disable-gpu",
                         f"user-data-dir={folder}/user"):
            options.add_argument(f"--{argument}")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        self.driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        self.url = f"file://{file}"
        self.asked = set()
        self.look(width, scheme)
        self.driver.get("about:blank")
        self.driver.get_log("performance")  # Of the browser's own first page.
        self.driver.get(self.url)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.driver.quit()

    def look(self, width, scheme):
        """Without motion, so that nothing has to be waited for."""
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [
            {"name": "prefers-color-scheme", "value": scheme},
            {"name": "prefers-reduced-motion", "value": "reduce"}]})
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": 800, "deviceScaleFactor": 1, "mobile": width < 500})

    def js(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def data(self, block):
        return json.loads(self.js(f"return document.getElementById('{block}-data').textContent"))

    def find(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def texts(self, selector):
        return self.js("return [...document.querySelectorAll(arguments[0])].map((one) =>"
                       " one.textContent)", selector)

    def focused(self):
        return self.js("return document.activeElement.id")

    def range(self):
        words = self.find("#range").text.split()
        return float(words[0]), float(words[2])

    def pixels(self):
        """Of the timeline, once it is drawn; no two alike where it has changed."""
        return self.driver.execute_async_script(
            "const done = arguments[0]; requestAnimationFrame(() => requestAnimationFrame(() =>"
            " done(document.querySelector('#timeline-box canvas').toDataURL())))")

    def check_quiet(self):
        """No error, and nothing but the file itself was asked for."""
        complaints = self.driver.get_log("browser")
        assert not complaints, complaints
        messages = [json.loads(entry["message"])["message"]
                    for entry in self.driver.get_log("performance")]
        self.asked |= {message["params"]["request"]["url"].split("#")[0] for message in messages
                       if message["method"] == "Network.requestWillBeSent"}
        away = {url for url in self.asked if not url.startswith("data:")}
        assert away - {"about:blank"} == {self.url}, away

    def check_names(self):
        """Whoever does not see the page hears what each thing is."""
        tree = self.driver.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
        named = {"button", "link", "textbox", "searchbox", "combobox", "checkbox", "image",
                 "region", "application", "heading"}
        nodes = [node for node in tree
                 if not node["ignored"] and node["role"]["value"] in named]
        nameless = [node for node in nodes if not node.get("name", {}).get("value")]
        assert len(nodes) > 30 and not nameless, nameless[:3]
        levels = [int(one.tag_name[1]) for one in self.all("h1, h2, h3")]
        assert levels[0] == 1 and all(b - a <= 1 for a, b in zip(levels, levels[1:])), levels

    def check_contrast(self):
        """At least 4.5 of each text's colour on each background. Returns how bright the page is."""
        def brightness(colour):
            parts = [int(part) / 255 for part in colour[4:-1].split(",")]
            light = [p / 12.92 if p <= .04045 else ((p + .055) / 1.055) ** 2.4 for p in parts]
            return .2126 * light[0] + .7152 * light[1] + .0722 * light[2]
        values = self.js(
            "return Object.fromEntries(arguments[0].map((name) => { const one = document.body"
            ".appendChild(document.createElement('i')); one.style.color = `var(--${name})`;"
            " const { color } = getComputedStyle(one); one.remove(); return [name, color]; }))",
            COLOURS + ["back", "panel", "mark", "s0", "s1", "s2", "s3", "s4", "s5", "s6"])
        bright = {name: brightness(colour) for name, colour in values.items()}
        pairs = [(a, b) for a in COLOURS for b in ("back", "panel", "mark")]
        pairs += [("text", f"s{i}") for i in range(7)]
        for text, back in pairs:
            low, high = sorted((bright[text], bright[back]))
            assert (high + .05) / (low + .05) >= 4.5, (text, back)
        return brightness(self.js("return getComputedStyle(document.body).backgroundColor"))

    def check_narrow(self):
        width = self.js("return document.documentElement.scrollWidth")
        assert width <= 360, f"{width} pixels wide"


def check_violation(page):
    """Followed from its place in the list to the timeline, and to its request."""
    found = [i for i, one in enumerate(page.data("report")["violations"]) if one["rule"] == "H4"]
    violation = page.data("report")["violations"][found[0]]
    request = f"{violation['camera']}/{violation['request']}"
    before = page.pixels()
    item = f"#violation-{found[0] + 1}"
    page.find(f"{item} a[href^='#at-']").click()
    assert page.focused() == "timeline-box"
    told = page.find("#told").text
    assert violation["entry"] in told and request in told and "breaks H4" in told, told
    first, last = page.range()
    assert first <= violation["time"] / 1000 <= last < first + 5000, (first, last)
    assert page.pixels() != before
    assert [row.find_element(By.TAG_NAME, "a").text
            for row in page.all("#request-table tr[aria-current=true]")] == [request]
    page.find(f"{item} a[href^='#request-']").click()
    assert page.find(f"#{page.focused()} a").text == request
    page.driver.back()
    assert page.focused() == "timeline-box"
    # From the row back to the violation, and by the address alone.
    page.find("tr[aria-current=true] a[href^='#violation-']").click()
    assert page.focused() == item[1:]
    page.driver.get("about:blank")
    page.driver.get(f"{page.url}#at-{item[1:]}")
    assert page.find("#told").text == told and page.range() == (first, last)


def check_sorting(page):
    """By each column, with mouse and keyboard; what is missing stands last."""
    heads = len(page.all("#request-table th"))
    latencies = [one["latency"]["complete"] for one in page.data("report")["requests"]]
    there = sorted(round(one / 1000, 2) for one in latencies if one is not None)
    assert None in latencies and len(there) > 10
    for column in range(1, heads + 1):
        head = f"#request-table th:nth-child({column})"
        cells = f"#request-table td:nth-child({column})"
        page.find(f"{head} button").click()
        assert page.find(head).get_attribute("aria-sort") == "ascending"
        first = page.texts(cells)
        page.find(f"{head} button").send_keys(Keys.ENTER)
        assert page.find(head).get_attribute("aria-sort") == "descending"
        assert len(page.all("#request-table th[aria-sort]")) == 1
        second = page.texts(cells)
        assert len(set(first)) == 1 or first != second, first
        assert sorted(first) == sorted(second)
        if page.find(head).text.startswith("Complete"):
            assert [float(one) for one in first if one] == there, first
            assert [float(one) for one in second if one] == there[::-1], second
            assert first[-1] == second[-1] == ""


def check_filter(page):
    """By level and by text, alone and together."""
    lines = page.data("report")["log"]
    for level, text in (("V", ""), ("E", ""), ("V", "OPENOFFLINE"), ("E", "executerequest"),
                        ("V", "nobody logs this")):
        Select(page.find("#log-level")).select_by_value(level)
        page.find("#log-text").clear()
        page.find("#log-text").send_keys(text)
        wanted = [one["text"] for one in lines if (level == "V" or one["level"] == "E") and
                  text.lower() in f"{one['tag']} {one['text']}".lower()]
        assert page.texts("#log-rows td:last-child") == wanted, (level, text)
        assert page.find("#log-count").text == f"{len(wanted)} of {len(lines)} lines"
        assert (len(wanted) > 0) == ("nobody" not in text) and len(wanted) <= len(lines)


def check_timeline(page):
    """By keyboard, mouse and wheel; and the table that says the same."""
    box = page.find("#timeline-box")
    box.send_keys("0")
    whole = page.range()
    box.send_keys(Keys.ESCAPE, Keys.ARROW_RIGHT)
    told = [page.find("#told").text]
    for key in (Keys.ARROW_RIGHT, Keys.ARROW_DOWN, Keys.ARROW_DOWN, Keys.ARROW_DOWN):
        box.send_keys(key)
        told.append(page.find("#told").text)
    assert len(set(told)) == len(told), told
    box.send_keys("+", "+", "+")
    first, last = page.range()
    assert abs((whole[1] - whole[0]) / (last - first) - 1.5 ** 3) < .1
    ActionChains(page.driver).move_to_element(box).click_and_hold().move_by_offset(
        -200, 0).release().perform()
    moved = page.range()
    assert moved[0] > first and abs(moved[1] - moved[0] - last + first) < .3, moved
    page.js("arguments[0].dispatchEvent(new WheelEvent('wheel', { deltaY: 50, cancelable: true }))",
            box)
    assert page.range()[1] - page.range()[0] > (last - first) * 1.1
    page.find("[data-act=all]").click()
    assert page.range() == whole
    page.find("#calls summary").click()
    calls = sum(event["ph"] == "B" for event in page.data("trace")["traceEvents"])
    page.find("#calls > div > button").click()
    page.pixels()
    assert len(page.all("#calls tbody tr")) == calls
    page.find("#calls tbody tr a").click()
    assert "event 1" in page.find("#told").text


def check_pictures(page):
    """There are two, and the noisy one is the first: its neighbours differ more."""
    noise = page.js("""return [...document.querySelectorAll("#figures img")].map((image) => {
        const canvas = document.createElement("canvas");
        [canvas.width, canvas.height] = [image.naturalWidth, image.naturalHeight];
        const context = canvas.getContext("2d");
        context.drawImage(image, 0, 0);
        // Above the resolution star all is grey.
        const { data } = context.getImageData(canvas.width * .6, 4, canvas.width * .3, 20);
        let sum = 0;
        for (let i = 5; i < data.length; i += 4) {
            sum += Math.abs(data[i] - data[i - 4]);
        }
        return sum / data.length;
    })""")
    assert len(noise) == 2 and noise[0] > noise[1] * 1.5, noise


def check_bounded(page, whole):
    """Of many requests the bad one and the slowest, and the latencies of all."""
    shown = page.data("report")["requests"]
    assert len(whole["requests"]) == 300 and 0 < len(shown) < 300, len(shown)
    assert f"{300 - len(shown)} of 300 requests" in page.find("#warnings").text
    bad = [request["frame"] for request in whole["requests"] if not request["good"]]
    assert len(bad) == 1 and bad[0] in [request["frame"] for request in shown], bad
    latency = sorted(request["latency"]["complete"] for request in whole["requests"]
                     if request["good"])
    fastest = min(request["latency"]["complete"] for request in shown if request["good"])
    assert fastest == latency[len(latency) - len(shown) + 1], fastest
    median = f"{latency[149] / 1000:.2f}"
    row = page.all("#latency-table tbody tr")[-1].text.split()
    assert row[-5] == "299" and row[-3] == median, (row, median)
    frames = {event["args"].get("frame") for event in page.data("trace")["traceEvents"]
              if event["ph"] == "B"} - {None}
    assert frames == {request["frame"] for request in shown}, frames


def check_campaign(page):
    """The one finding: in both matrices by keyboard, with its command; and the way back."""
    cells = page.data("campaign")["cells"]
    found = [one for one in cells if one["class"] != "as documented"]
    assert page.find("#verdict").text == f"1 run of {len(cells)} did not end as documented"
    assert len(page.all("#finding-table tbody tr")) == len(found) == 1
    for matrix, rank in (("#single-matrix", 1), ("#pair-matrix", 2)):
        field = page.find(f"{matrix} td button[tabindex='0']")
        field.send_keys(Keys.ARROW_DOWN)
        field = page.driver.switch_to.active_element
        assert len(page.all(f"{matrix} td button[tabindex='0']")) == 1
        field.send_keys(Keys.ARROW_RIGHT, Keys.ENTER)
        assert page.focused() == "field-title"
        shown = page.texts("#runs code")
        row = field.find_element(By.XPATH, "../..").find_element(By.TAG_NAME, "th").text
        of_row = [one["command"] for one in cells if len(one["faults"]) == rank and
                  any(row.split(",")[0].split(" ")[-1] in fault for fault in one["faults"])]
        assert shown and set(shown) <= set(of_row), (row, shown)
        page.find("#runs h3").find_element(By.XPATH, "..").find_element(
            By.TAG_NAME, "button").send_keys(Keys.ESCAPE)
        assert page.driver.switch_to.active_element == field
    bad = page.find(".matrix button[data-class=crash]")
    assert bad.text.startswith("C")
    bad.click()
    assert page.texts("#runs code")[0] == found[0]["command"]
    page.find("#runs button").click()
    assert page.find("#copied").text == "Copied"
    page.find("#only").click()
    assert len(page.all("#single-matrix tbody tr")) == (len(found[0]["faults"]) == 1)


def write_campaign(campaign, folder):
    """Faults of two entries in one scenario, and pairs, one of which is said to crash."""
    file, page = f"{folder}/campaign", f"{folder}/campaign.html"
    run(campaign, "--scenario", "refused", "--pairs", "--fault", "CloseSession", "--fault",
        "GetImageBuffer", "--file", file)
    with open(file, encoding="utf-8") as results:
        lines = results.readlines()
    lines[-1] = lines[-1].replace('"as documented"', '"crash"')
    with open(file, "w", encoding="utf-8") as results:
        results.writelines(lines)
    run(campaign, "--merge", file, "--page", page)
    return page


def main(host, view, campaign):
    with tempfile.TemporaryDirectory() as folder:
        files = {name: f"{folder}/{name}" for name in (
            "broken.json", "a.html", "a.rec", "b.html", "demo.html", "many.json", "many.html",
            "report.json")}
        with open(files["broken.json"], "w", encoding="utf-8") as file:
            json.dump(SCENARIO, file)
        run(host, files["broken.json"], "--record", files["a.rec"], "--page", files["a.html"])
        run(view, "show", files["a.rec"], "--page", files["b.html"])
        run(host, "night-burst", "--page", files["demo.html"])
        with open(files["many.json"], "w", encoding="utf-8") as file:
            json.dump(MANY, file)
        run(host, files["many.json"], "--page", files["many.html"], "--report",
            files["report.json"])
        for name in "demo.html", "many.html":
            size = os.path.getsize(files[name])
            assert size < 3_000_000, f"{name}: {size} bytes"
        with open(files["report.json"], encoding="utf-8") as file, \
                Page(folder, files["many.html"]) as page:
            check_bounded(page, json.load(file))
            page.check_names()
            page.check_quiet()
        with Page(folder, files["a.html"]) as page:
            page.check_names()
            assert page.find("#shows").text == SCENARIO["shows"]
            assert page.find("#command").text == page.data("report")["run"]["command"]
            page.find("#copy").click()
            assert page.find("#copied").text == "Copied"
            for check in (check_violation, check_sorting, check_filter, check_timeline,
                          check_pictures):
                check(page)
            assert page.check_contrast() > .8
            bright = page.pixels()
            page.look(1280, "dark")
            assert page.check_contrast() < .05 and page.pixels() != bright
            page.check_quiet()
        with Page(folder, write_campaign(campaign, folder)) as page:
            page.check_names()
            check_campaign(page)
            assert page.check_contrast() > .8
            page.look(360, "dark")
            page.check_narrow()
            page.find("#only").click()
            assert page.find("#single-matrix th[scope=row]").size["width"] > 120
            assert page.check_contrast() < .05
            page.check_quiet()
        for name in ("b.html", "demo.html", "a.html"):
            with Page(folder, files[name], 360) as page:
                page.check_narrow()
                page.check_quiet()
                assert page.all("#pictures[hidden]") == page.all("#pictures")[:name == "b.html"]
    print("good")


main(*sys.argv[1:])
