// What the map stands on: the parameters in the page's address, messages to the program around it, frames, and the hands
// of people. Screen lengths are CSS pixels.
window.onfocusin = null; // tells jQuery that focus events bubble; it would try with an inline handler, which the page forbids
var platform = (function (purl) {
  'use strict';

  const NAMES = ['dot-x', 'dot-y', 'map-width', 'map-height', 'crop-width', 'crop-height', 'map-file', 'uncertainty-radius'];
  const ENTRY_START = new RegExp('&(?=(?:' + NAMES.join('|') + ')=)');
  const NUMBER = /^-?\d{1,7}(\.\d{1,6})?$/;
  const SCHEME = 'quembly:';
  const ESCAPED = '#escaped'; // behind an address in whose query the program escaped the values

  function clamp(value, low, high) {
    return Math.min(Math.max(value, low), high);
  }

  function distance(one, other) {
    return Math.hypot(one.x - other.x, one.y - other.y);
  }

  // The text between the first "?" and a sign that a program set behind it. purl reads plain characters only: so all
  // others are escaped for it, escapes included, and decoding gives back the very text of the address.
  function query(address) {
    const start = address.indexOf('?');
    if (start < 0) return '';
    const end = isEscaped(address) ? address.length - ESCAPED.length : address.length;
    const plain = address.slice(start + 1, end).replace(/[^\w=&-]/g, (c) => '%' + c.charCodeAt(0).toString(16).padStart(2, '0'));
    return purl('/?' + plain).search || '';
  }

  function isEscaped(address) {
    return address.endsWith(ESCAPED);
  }

  // Name to raw value. A value may hold "&" and "=": an entry ends only where one of the known names begins. The first
  // of two entries with one name counts.
  function entries(address) {
    const found = new Map();
    for (const entry of query(address).split(ENTRY_START)) {
      const name = entry.slice(0, entry.indexOf('='));
      if (NAMES.includes(name) && !found.has(name)) found.set(name, decodeURIComponent(entry.slice(name.length + 1)));
    }
    return found;
  }

  function number(text) {
    return text !== undefined && NUMBER.test(text) ? Number(text) : null;
  }

  // Escapes that mean nothing stay as they are.
  function unescaped(text) {
    return text.replace(/(?:%[0-9a-f]{2})+/gi, (escapes) => {
      try {
        return decodeURIComponent(escapes);
      } catch (malformed) {
        return escapes;
      }
    });
  }

  // A file beside the page: nothing that leads to another folder.
  function isPlainName(name) {
    return name.length > 0 && name.length <= 255 && name !== '.' && name !== '..' && !/[/\\\u0000-\u001f]/.test(name);
  }

  // In a plain address a name is taken as it stands. But the browser has escaped some of its characters and left others:
  // a "%20" may stand for a blank, when there is no such file.
  function fileNames(text, escaped) {
    if (text === undefined) return [];
    const names = escaped ? [unescaped(text)] : [text, unescaped(text)];
    return [...new Set(names)].filter(isPlainName);
  }

  function size(found, name) {
    const width = number(found.get(name + '-width'));
    const height = number(found.get(name + '-height'));
    return width >= 1 && height >= 1 ? { width, height } : null;
  }

  function position(found) {
    const x = number(found.get('dot-x'));
    const y = number(found.get('dot-y'));
    return x === null || y === null ? null : { x, y, radius: number(found.get('uncertainty-radius')) || 0 };
  }

  const stillness = window.matchMedia('(prefers-reduced-motion: reduce)');

  // Runs named animations, and draws when something has changed, at most once a frame.
  class Animator {
    constructor(draw) {
      this.draw = draw;
      this.running = new Map();
      this.requested = false;
      this.timer = 0;
      this.changed = false;
      this.drawnAt = -Infinity;
    }

    // step(part) goes from 0 to exactly 1. An animation replaces the one of its name. It ends at once where people want
    // nothing to move, and where no frame would come. Pictures of it alone come no closer together than spacing.
    run(name, milliseconds, step, spacing) {
      this.running.delete(name);
      if (milliseconds <= 0 || stillness.matches || document.hidden) {
        step(1);
        this.invalidate();
      } else {
        this.running.set(name, { start: performance.now(), milliseconds, step, spacing: spacing || 0 });
        this.request();
      }
    }

    stop(name) {
      return this.running.delete(name);
    }

    isRunning(name) {
      return this.running.has(name);
    }

    invalidate() {
      this.changed = true;
      if (document.hidden) this.finish();
      else this.request();
    }

    // Asks for the frame in which the next picture is due; a timer passes over those before it.
    request() {
      if (this.requested || (!this.changed && this.running.size === 0)) return;
      window.clearTimeout(this.timer);
      const wait = this.wait(performance.now());
      if (wait > 20) {
        this.timer = window.setTimeout(() => this.request(), wait - 8);
      } else {
        this.requested = true;
        window.requestAnimationFrame((now) => this.frame(now));
      }
    }

    wait(now) {
      if (this.changed) return 0;
      return Math.min(...[...this.running.values()].map((animation) => animation.spacing)) - (now - this.drawnAt);
    }

    frame(now) {
      this.requested = false;
      if (this.wait(now) <= 0) {
        this.changed = false;
        this.drawnAt = now;
        this.advance(now);
        this.draw();
      }
      if (this.running.size > 0) this.request();
    }

    advance(now) {
      for (const [name, animation] of [...this.running]) {
        const part = clamp((now - animation.start) / animation.milliseconds, 0, 1);
        if (part === 1) this.running.delete(name);
        animation.step(part === 1 ? 1 : 1 - Math.pow(1 - part, 3));
      }
    }

    finish() {
      const left = [...this.running.values()];
      this.running.clear();
      this.changed = false;
      left.forEach((animation) => animation.step(1));
      this.draw();
    }
  }

  // Turns mouse, pen and fingers into what they mean; the listener acts. Points are screen points.
  class Gestures {
    constructor(element, listener) {
      this.element = element;
      this.listener = listener;
      this.contacts = new Map();
      this.tap = null;
      this.trail = [];
      this.listenToMouse();
      this.listenToTouch();
      this.listenToWheel();
    }

    listen(handlers) {
      for (const [type, handler] of Object.entries(handlers)) this.element.addEventListener(type, handler, { passive: false });
    }

    // Pointer events tell fractions of a pixel, which mouse events cut off. Fingers come as touch events, which every
    // engine has.
    listenToMouse() {
      const mouse = (act) => (event) => {
        if (event.pointerType !== 'touch') act({ x: event.clientX, y: event.clientY }, event);
      };
      this.listen({
        pointerdown: mouse((point, event) => {
          if (event.button !== 0) return;
          this.element.setPointerCapture(event.pointerId);
          this.begin('mouse', point, 4);
        }),
        pointermove: mouse((point) => this.move(new Map([['mouse', point]]))),
        pointerup: mouse(() => this.end('mouse')),
        pointercancel: mouse(() => this.cancel('mouse')),
        contextmenu: (event) => event.preventDefault(),
      });
    }

    listenToTouch() {
      const each = (act) => (event) => {
        event.preventDefault();
        act([...event.changedTouches].map((touch) => [touch.identifier, { x: touch.clientX, y: touch.clientY }]));
      };
      this.listen({
        touchstart: each((touches) => touches.forEach(([id, point]) => this.begin(id, point, 10))),
        touchmove: each((touches) => this.move(new Map(touches))),
        touchend: each((touches) => touches.forEach(([id]) => this.end(id))),
        touchcancel: each((touches) => touches.forEach(([id]) => this.cancel(id))),
      });
    }

    // A wheel tells pixels, lines or pages.
    listenToWheel() {
      const unit = [1, 16, 400];
      const wheel = (event) => {
        event.preventDefault();
        const way = clamp(event.deltaY * unit[event.deltaMode], -240, 240);
        this.listener.zoom(Math.exp(-way * (event.ctrlKey ? 0.01 : 0.002)), { x: event.clientX, y: event.clientY });
      };
      this.listen({ wheel });
    }

    isIdle() {
      return this.contacts.size === 0;
    }

    begin(id, point, slop) {
      const moving = this.listener.grab();
      this.contacts.set(id, point);
      this.trail = [];
      const single = this.contacts.size === 1;
      this.tap = single && !moving ? { screen: point, map: this.listener.touched(point), slop } : null;
    }

    move(points) {
      const known = [...points].filter(([id]) => this.contacts.has(id));
      if (known.length === 0) return;
      if (this.tap) {
        const [[, point]] = known;
        if (distance(point, this.tap.screen) <= this.tap.slop) return;
        this.tap = null;
      }
      const before = this.grip();
      known.forEach(([id, point]) => this.contacts.set(id, point));
      const now = this.grip();
      this.trail = [...this.trail.slice(-20), { ...now, time: performance.now() }];
      this.listener.drag(before, now, before.spread > 0 ? now.spread / before.spread : 1);
    }

    // The middle of the fingers and how far they are apart from it.
    grip() {
      const points = [...this.contacts.values()];
      const x = points.reduce((sum, point) => sum + point.x, 0) / points.length;
      const y = points.reduce((sum, point) => sum + point.y, 0) / points.length;
      return { x, y, spread: points.reduce((sum, point) => sum + distance(point, { x, y }), 0) };
    }

    end(id) {
      if (!this.contacts.delete(id)) return;
      if (this.contacts.size > 0) {
        this.trail = [];
        return;
      }
      if (this.tap) this.listener.tap(this.tap);
      else this.listener.release(this.speed(), id === 'mouse');
      this.tap = null;
    }

    cancel(id) {
      this.tap = null;
      this.trail = [];
      this.end(id);
    }

    // Pixels a millisecond over the last tenth of a second; none when the hand rested before it let go.
    speed() {
      const now = performance.now();
      const recent = this.trail.filter((point) => now - point.time < 100);
      if (recent.length < 2) return { x: 0, y: 0 };
      const first = recent[0];
      const last = recent[recent.length - 1];
      const time = Math.max(now - first.time, 16);
      return { x: (last.x - first.x) / time, y: (last.y - first.y) / time };
    }
  }

  // One tap is passed on after a moment, two in quick succession at one place are a double tap.
  class Taps {
    constructor(single, double) {
      this.single = single;
      this.double = double;
      this.waiting = null;
      this.timer = 0;
    }

    add(tap) {
      const first = this.take();
      if (first && distance(first.screen, tap.screen) < 30) {
        this.double(tap);
        return;
      }
      if (first) this.single(first);
      this.waiting = tap;
      this.timer = window.setTimeout(() => this.single(this.take()), 280);
    }

    take() {
      window.clearTimeout(this.timer);
      const tap = this.waiting;
      this.waiting = null;
      return tap;
    }
  }

  return {
    clamp,
    Animator,
    Gestures,
    Taps,

    // Sizes and positions are null where the address gives none that makes sense; lengths are standard pixels.
    parameters(address) {
      const found = entries(address);
      return { map: size(found, 'map'), crop: size(found, 'crop'), dot: position(found), files: fileNames(found.get('map-file'), isEscaped(address)) };
    },

    // The program sees the navigation and refuses it, so the page stays. Of two in one task only the last would arrive:
    // callers leave time between them. A hundredth of a pixel is two millimetres.
    reportTap(point) {
      window.location.href = SCHEME + 'tap:' + point.x.toFixed(2) + ',' + point.y.toFixed(2);
    },
  };
})(window.purl);
