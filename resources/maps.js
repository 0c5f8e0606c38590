// The map: plan, dot, highlighted areas, and the hands that move them. Map lengths are standard pixels, five to a
// metre, from the plan's top left corner; screen lengths are CSS pixels.
(function ($, platform) {
  'use strict';

  const { clamp, Animator, Gestures, Taps } = platform;
  const STANDARD_PIXELS_PER_METER = 5;
  const LARGEST_SCALE = 16;
  const NEAR_SIGHT = 150; // what the shorter side of the screen shows after "locate", in map lengths: 30 m
  const FIT_MARGIN = 12;
  const GLIDE_MS = 600;
  const DOT_PICTURE_MS = 30; // between pictures while only the dot moves, which costs half and looks the same
  const STREAM_PICTURE_MS = 45; // the same when positions come as fast as pictures
  const LARGEST_CIRCLE = 4096;
  const FRAME_SIDE = 8192;
  const ZOOM_MS = 200;
  const REST_MS = 100; // without a move
  const FIRST_TILE = 256;
  const TURN_MS = 16; // of painting without a break
  const TILE_MS = 80; // what a tile may take
  const RETRIES_MS = [100, 400, 1000, 3000]; // pauses before a plan that could not be loaded is tried again
  const OLD_AFTER_MS = 10000;
  const MOST_AREAS = 100;
  const FARTHEST = 1e7;
  const LARGEST_RADIUS = 2000;

  const darkness = window.matchMedia('(prefers-color-scheme: dark)');

  function mix(from, to, part) {
    return from + (to - from) * part;
  }

  function isCoordinate(value) {
    return Number.isFinite(value) && Math.abs(value) <= FARTHEST;
  }

  // Which part of the map the screen shows: screen point = map point * scale + (x, y).
  class View {
    constructor() {
      Object.assign(this, { width: 0, height: 0, scale: 1, x: 0, y: 0, sheet: { width: 1, height: 1 } });
    }

    toScreen(point) {
      return { x: point.x * this.scale + this.x, y: point.y * this.scale + this.y };
    }

    toMap(point) {
      return { x: (point.x - this.x) / this.scale, y: (point.y - this.y) / this.scale };
    }

    middle() {
      return { x: this.width / 2, y: this.height / 2 };
    }

    sheetMiddle() {
      return { x: this.sheet.width / 2, y: this.sheet.height / 2 };
    }

    fitScale() {
      const margin = Math.min(this.width, this.height) > 200 ? FIT_MARGIN : 0;
      const fit = Math.min((this.width - 2 * margin) / this.sheet.width, (this.height - 2 * margin) / this.sheet.height);
      return clamp(fit, 1e-6, LARGEST_SCALE);
    }

    nearScale() {
      return this.limited(Math.min(this.width, this.height) / NEAR_SIGHT);
    }

    limited(scale) {
      const fit = this.fitScale();
      return clamp(scale, fit, Math.max(LARGEST_SCALE, 4 * fit));
    }

    showsAll() {
      return this.contains(this.toScreen({ x: 0, y: 0 }), 0) && this.contains(this.toScreen({ x: this.sheet.width, y: this.sheet.height }), 0);
    }

    // Whether a screen point lies on the screen, less a border that is a part of its size.
    contains(point, border) {
      const within = (value, length) => value >= length * border - 1 && value <= length * (1 - border) + 1;
      return within(point.x, this.width) && within(point.y, this.height);
    }

    // The map point comes to stand at the screen point, as far as the middle of the screen stays on the sheet.
    place(scale, mapPoint, screenPoint) {
      this.scale = scale;
      this.x = screenPoint.x - mapPoint.x * scale;
      this.y = screenPoint.y - mapPoint.y * scale;
      const middle = this.toMap(this.middle());
      this.x += (middle.x - clamp(middle.x, 0, this.sheet.width)) * scale;
      this.y += (middle.y - clamp(middle.y, 0, this.sheet.height)) * scale;
    }
  }

  // The size that the plan is drawn at. The given size is whole pixels with the rest cut off, which can put the far edge
  // of a plan a fifth of a metre off. So the picture's own size tells the rest: its pixels to a metre lie in a narrow
  // range then, and are mostly a round number.
  function planSize(given, own) {
    if (!given || !own) return given || own;
    const low = STANDARD_PIXELS_PER_METER * Math.max(own.width / (given.width + 1), own.height / (given.height + 1));
    const high = STANDARD_PIXELS_PER_METER * Math.min(own.width / given.width, own.height / given.height);
    if (low >= high) return given;
    const round = [1, 10].map((digits) => Math.floor(high * digits + 1e-9) / digits).find((candidate) => candidate > low);
    if (!round && own.width * given.height === own.height * given.width) return given;
    const pixelsPerMeter = round || (low + high) / 2;
    return { width: own.width / pixelsPerMeter * STANDARD_PIXELS_PER_METER, height: own.height / pixelsPerMeter * STANDARD_PIXELS_PER_METER };
  }

  // The plan as pictures: one of the whole sheet, coarse, and above it one of what the screen shows, sharp. While the map
  // moves, both are only moved; the sharp one is painted again when it has rested, and now and then on the way. A picture
  // is painted in tiles and short tasks, beside the one on show: a plan of 100 000 shapes takes a second, in which fingers
  // and the dot want to move.
  class Plan {
    constructor(overview, detail) {
      this.overview = overview;
      this.detail = detail;
      this.spare = document.createElement('canvas'); // the next sharp picture, until it is complete
      this.tile = document.createElement('canvas');
      this.original = document.createElement('canvas'); // the tile before it is darkened
      this.tileSide = FIRST_TILE; // canvas pixels
      this.work = null; // the picture that is being painted
      this.timer = 0;
      this.areas = [];
      this.image = null;
      this.grid = null;
      this.painted = null; // what the sharp picture shows
      this.overviewScale = 0; // 0 before there is one
      this.seen = null; // the view at the last drawing
      this.movedAt = -Infinity;
      this.isStale = true; // both pictures have to be painted again, at once
      this.size = { width: 1, height: 1 };
      this.sheet = this.size;
      this.paintMilliseconds = 0;
      this.paintedAt = -Infinity;
    }

    static agree(one, other) {
      return one.scale === other.scale && one.x === other.x && one.y === other.y;
    }

    static fill(context, operation, colour, { x, y, width, height }) {
      context.globalCompositeOperation = operation;
      context.fillStyle = colour;
      context.fillRect(x, y, width, height);
    }

    // part: of the map, that the canvas covers.
    paintContent(context, scale, part) {
      if (this.image) {
        context.drawImage(this.image, 0, 0, this.size.width, this.size.height);
        return;
      }
      const step = this.grid ? this.grid.width : 0;
      if (step * scale < 40) return; // too fine to be seen
      const first = (start) => Math.floor(Math.max(start, 0) / step) * step;
      const right = Math.min(part.x + part.width, this.sheet.width);
      const bottom = Math.min(part.y + part.height, this.sheet.height);
      for (let x = first(part.x); x < right; x += step) {
        for (let y = first(part.y); y < bottom; y += step) context.drawImage(this.grid, x, y, step, step);
      }
    }

    // A light plan becomes a dark one of the same hues: turned to its negative, then given its own colour back. Where it
    // is transparent, it stays so.
    darken(context, part) {
      const original = this.original;
      original.width = this.tile.width;
      original.height = this.tile.height;
      original.getContext('2d').drawImage(this.tile, 0, 0);
      const drawOriginal = (operation) => {
        context.save();
        context.setTransform(1, 0, 0, 1, 0, 0);
        context.globalCompositeOperation = operation;
        context.drawImage(original, 0, 0);
        context.restore();
      };
      Plan.fill(context, 'destination-over', '#fff', part);
      Plan.fill(context, 'difference', '#fff', part);
      drawOriginal('color');
      Plan.fill(context, 'screen', '#20242b', part);
      drawOriginal('destination-in');
    }

    paintAreas(context, scale) {
      context.globalCompositeOperation = 'source-over';
      context.fillStyle = 'rgba(255, 171, 0, .3)';
      context.strokeStyle = darkness.matches ? '#ffc04d' : '#c77700';
      context.lineWidth = 2.5 / scale;
      context.lineJoin = 'round';
      for (const area of this.areas) {
        context.beginPath();
        area.forEach((point) => context.lineTo(point.x, point.y));
        context.closePath();
        context.fill();
        context.stroke();
      }
    }

    // Of a picture the pixels from (left, top) on, into the tile. What lies beside the sheet is cut off in one step at the
    // end: an edge between two pixels that is drawn several times would show.
    paintTile({ scale, x, y, ratio }, left, top, width, height) {
      this.tile.width = width;
      this.tile.height = height;
      const context = this.tile.getContext('2d');
      const part = { x: (left / ratio - x) / scale, y: (top / ratio - y) / scale, width: width / ratio / scale, height: height / ratio / scale };
      context.setTransform(scale * ratio, 0, 0, scale * ratio, x * ratio - left, y * ratio - top);
      this.paintContent(context, scale, part);
      if (darkness.matches) this.darken(context, part);
      this.paintAreas(context, scale);
      Plan.fill(context, 'destination-in', '#000', { x: 0, y: 0, ...this.sheet });
    }

    // picture: scale, x, y as in a view, the size in screen pixels, and canvas pixels to a screen pixel. view: what the
    // picture has to agree with in the end, if anything.
    begin(canvas, picture, view, done) {
      canvas.width = Math.max(1, Math.round(picture.width * picture.ratio));
      canvas.height = Math.max(1, Math.round(picture.height * picture.ratio));
      this.work = { canvas, picture, view, done, left: 0, top: 0, height: this.tileSide, milliseconds: 0 };
      this.proceed();
    }

    // Tiles for a short while, then the others have their turn, for as long while the map moves. Copying a tile makes the browser draw it, so
    // that its time is known. A picture that somebody has moved away from meanwhile, to rest elsewhere, is given up.
    proceed() {
      const { work } = this;
      const start = performance.now();
      this.timer = 0;
      if (work.view && !Plan.agree(work.picture, work.view) && start - this.movedAt > REST_MS) {
        this.beginDetail(work.view);
        return;
      }
      for (let before = start, spent = 0; work.top < work.canvas.height && before - start < TURN_MS; before += spent) {
        const width = Math.min(this.tileSide, work.canvas.width - work.left);
        const height = Math.min(work.height, work.canvas.height - work.top);
        this.paintTile(work.picture, work.left, work.top, width, height);
        work.canvas.getContext('2d').drawImage(this.tile, work.left, work.top);
        work.left += width;
        if (work.left >= work.canvas.width) Object.assign(work, { left: 0, top: work.top + height, height: this.tileSide });
        spent = performance.now() - before;
        this.fitTile(spent);
      }
      const spent = performance.now() - start;
      work.milliseconds += spent;
      if (work.top < work.canvas.height) {
        const isMoving = start - this.movedAt < REST_MS;
        this.timer = window.setTimeout(() => this.proceed(), isMoving ? Math.max(4, spent) : 4);
      } else {
        this.work = null;
        work.done(work);
      }
    }

    // A browser goes through all shapes for every tile: so tiles are as large as they may be.
    fitTile(milliseconds) {
      if (milliseconds < TURN_MS) this.tileSide = Math.min(2 * this.tileSide, 1024);
      else if (milliseconds > TILE_MS) this.tileSide = Math.max(this.tileSide / 2, 128);
    }

    stop() {
      window.clearTimeout(this.timer);
      this.timer = 0;
      this.work = null;
    }

    beginOverview(view) {
      const scale = 1024 / Math.max(this.sheet.width, this.sheet.height);
      this.overviewScale = scale;
      this.begin(this.overview, { scale, x: 0, y: 0, width: this.sheet.width * scale, height: this.sheet.height * scale, ratio: 1 }, null, () => this.draw(view));
    }

    beginDetail(view) {
      const { scale, x, y, width, height } = view;
      this.begin(this.spare, { scale, x, y, width, height, ratio: window.devicePixelRatio }, view, (work) => {
        this.showDetail(work);
        this.draw(view);
      });
    }

    showDetail({ canvas, picture, milliseconds }) {
      this.detail.width = canvas.width;
      this.detail.height = canvas.height;
      this.detail.style.width = canvas.width / picture.ratio + 'px';
      this.detail.style.height = canvas.height / picture.ratio + 'px';
      this.detail.getContext('2d').drawImage(canvas, 0, 0);
      this.painted = picture;
      this.paintedAt = performance.now();
      this.paintMilliseconds = milliseconds;
    }

    setImage(image) {
      this.image = image;
      this.tileSide = FIRST_TILE; // nobody knows yet how long one takes
    }

    repaint(view) {
      this.stop();
      this.isStale = true;
      this.draw(view);
    }

    isSharp(view) {
      return this.painted.ratio === window.devicePixelRatio && Plan.agree(this.painted, view);
    }

    // The coarse picture is needed only where the fine one doesn't reach; left out, it costs nothing behind the dot.
    move(view) {
      this.overview.style.visibility = this.isSharp(view) || !this.overviewScale ? 'hidden' : 'visible';
      const growth = view.scale / this.painted.scale;
      const coarse = view.scale / this.overviewScale;
      if (this.overviewScale) this.overview.style.transform = `matrix(${coarse}, 0, 0, ${coarse}, ${view.x}, ${view.y})`;
      this.detail.style.transform = `matrix(${growth}, 0, 0, ${growth}, ${view.x - growth * this.painted.x}, ${view.y - growth * this.painted.y})`;
    }

    // Moves the pictures, and has the next one painted if nothing is being painted: first what the screen shows.
    draw(view) {
      if (!this.seen || !Plan.agree(this.seen, view)) {
        this.seen = { scale: view.scale, x: view.x, y: view.y };
        this.movedAt = performance.now();
      }
      if (this.painted) this.move(view);
      if (this.work || this.timer) return;
      if (this.isStale) {
        this.isStale = false;
        this.overviewScale = 0;
        this.beginDetail(view);
      } else if (!this.overviewScale) {
        this.beginOverview(view);
      } else if (!this.isSharp(view)) {
        this.sharpenSoon(view);
      }
    }

    sharpenSoon(view) {
      const due = this.paintedAt + Math.max(REST_MS, this.paintMilliseconds);
      this.timer = window.setTimeout(() => {
        this.timer = 0;
        this.beginDetail(view);
      }, Math.max(0, due - performance.now()));
    }
  }

  // The device's position, with a circle that it lies in.
  class Dot {
    constructor(marker, circle, frame, announce) {
      this.marker = marker;
      this.circle = circle;
      this.frame = frame; // the sheet, which cuts the circle off
      this.both = $([marker, circle]);
      this.announce = announce;
      this.at = null;
      this.circleSize = 0;
      this.timer = 0;
      this.updated = 0;
      this.isOutdated = false;
    }

    update(position, animator, smooth) {
      const now = performance.now();
      const from = this.at;
      const pause = now - this.updated;
      const milliseconds = from && smooth ? Math.min(GLIDE_MS, pause) : 0;
      this.updated = now;
      if (!from) this.appear(position);
      animator.run('dot', milliseconds, (part) => {
        this.at = part === 1 ? position : { x: mix(from.x, position.x, part), y: mix(from.y, position.y, part), radius: mix(from.radius, position.radius, part) };
      }, pause < 100 ? STREAM_PICTURE_MS : DOT_PICTURE_MS);
      this.restartAge();
    }

    appear(position) {
      this.at = position;
      this.both.addClass('shown');
      this.announce('Your position is shown.');
    }

    hide(animator) {
      if (!this.at) return;
      animator.stop('dot');
      window.clearTimeout(this.timer);
      this.timer = 0;
      this.at = null;
      this.both.removeClass('shown');
      this.announce('Your position is not known.');
    }

    // One timer for many updates: it looks how old the last one is.
    restartAge() {
      if (this.isOutdated) {
        this.isOutdated = false;
        this.both.removeClass('outdated');
        $(this.marker).attr('aria-label', 'Your position');
      }
      if (!this.timer) this.watch(OLD_AFTER_MS);
    }

    watch(milliseconds) {
      this.timer = window.setTimeout(() => {
        this.timer = 0;
        const left = this.updated + OLD_AFTER_MS - performance.now();
        if (left > 0) this.watch(left);
        else this.markOutdated();
      }, milliseconds);
    }

    markOutdated() {
      this.isOutdated = true;
      this.both.addClass('outdated');
      $(this.marker).attr('aria-label', 'Your position, out of date');
      this.announce('Your position is out of date.');
    }

    // The circle is a box of a size near the wanted one, painted once and then only scaled, like the frame around it.
    drawCircle({ sheet, scale, x, y }) {
      const size = 2 * this.at.radius * scale;
      if (size < this.circleSize / 2 || (size > this.circleSize && this.circleSize < LARGEST_CIRCLE)) {
        this.circleSize = clamp(Math.pow(2, Math.ceil(Math.log2(size))), 1, LARGEST_CIRCLE);
        this.circle.style.width = this.circle.style.height = this.circleSize + 'px';
      }
      // A browser cuts off at whole pixels of the frame before it is scaled: so there are many of them.
      const fineness = FRAME_SIDE / Math.max(sheet.width, sheet.height);
      const [width, height] = [sheet.width * fineness + 'px', sheet.height * fineness + 'px'];
      if (this.frame.style.width !== width) this.frame.style.width = width;
      if (this.frame.style.height !== height) this.frame.style.height = height;
      this.frame.style.transform = `matrix(${scale / fineness}, 0, 0, ${scale / fineness}, ${x}, ${y})`;
      const growth = 2 * this.at.radius * fineness / this.circleSize;
      const [left, top] = [(this.at.x - this.at.radius) * fineness, (this.at.y - this.at.radius) * fineness];
      this.circle.style.transform = `matrix(${growth}, 0, 0, ${growth}, ${left}, ${top})`;
    }

    draw(view) {
      if (!this.at) return;
      const screen = view.toScreen(this.at);
      this.marker.style.transform = `translate(${screen.x}px, ${screen.y}px)`;
      this.drawCircle(view);
    }
  }

  // Loads the first of the files that is a picture, and tells it with its name; nothing when none is.
  function loadPicture(files, done) {
    if (files.length === 0) {
      done(null);
      return;
    }
    const picture = new Image();
    picture.onload = () => done(picture, files[0]);
    picture.onerror = () => loadPicture(files.slice(1), done);
    picture.src = encodeURIComponent(files[0]);
  }

  class MapPage {
    constructor(parameters) {
      this.parameters = parameters;
      this.view = new View();
      this.animator = new Animator(() => this.draw());
      this.plan = new Plan($('#overview')[0], $('#detail')[0]);
      this.dot = new Dot($('#marker')[0], $('#uncertainty')[0], $('#sheet')[0], (text) => $('#news').text(text));
      this.following = true;
      this.fitted = true; // the whole sheet is shown, and stays so when the window changes
      this.goal = 0; // the scale that a glide ends at
      this.gliding = ''; // what started the last glide: 'hand' or 'dot'
    }

    start() {
      this.setSheet(null);
      this.resize();
      this.listen();
      if (this.parameters.dot) this.setDot(this.parameters.dot, false);
      this.loadPlan(RETRIES_MS);
    }

    // A plan that an update replaces just now is missing for a moment, before which nobody needs to hear of it.
    loadPlan(pauses) {
      loadPicture(this.parameters.files, (picture, name) => {
        if (picture) {
          this.showPlan(picture, name);
          return;
        }
        if (pauses.length < RETRIES_MS.length && !this.plan.grid) this.showGrid();
        if (pauses.length > 0) window.setTimeout(() => this.loadPlan(pauses.slice(1)), pauses[0]);
      });
    }

    listen() {
      this.taps = new Taps((tap) => this.report(tap.map), (tap) => this.zoom(2, tap.screen));
      this.gestures = new Gestures($('#map')[0], this);
      $(window).on('resize', () => this.resize());
      $(document).on('keydown', (event) => this.key(event)).on('visibilitychange', () => this.animator.invalidate());
      $('#zoom-in').on('click', () => this.zoom(1.6, this.view.middle()));
      $('#zoom-out').on('click', () => this.zoom(1 / 1.6, this.view.middle()));
      $('#zoom-fit').on('click', () => this.fit(GLIDE_MS / 2));
      darkness.addEventListener('change', () => this.repaint());
    }

    showPlan(picture, file) {
      const name = file.replace(/\.[^.]*$/, '');
      $('#message').text('');
      $('#detail').attr('aria-label', 'Floor plan ' + name);
      document.title = name;
      this.plan.setImage(picture);
      this.setSheet(picture.naturalWidth > 0 ? { width: picture.naturalWidth, height: picture.naturalHeight } : null);
      this.repaint();
    }

    showGrid() {
      $('#message').text('The plan of this map is missing. Positions are shown on a grid of 5 metres.');
      $('#detail').attr('aria-label', 'Grid in place of a missing floor plan');
      loadPicture(['grid.svg'], (picture) => {
        this.plan.grid = picture;
        if (!this.plan.image) this.repaint();
      });
    }

    setSheet(own) {
      const { map, crop } = this.parameters;
      const size = planSize(map, own) || { width: 1000, height: 1000 };
      const isWhole = !crop || (map && crop.width >= map.width && crop.height >= map.height);
      const sheet = isWhole ? size : { width: Math.min(crop.width, size.width), height: Math.min(crop.height, size.height) };
      this.plan.size = size;
      this.plan.sheet = this.view.sheet = sheet;
      if (this.fitted) this.fit(0);
    }

    resize() {
      const middle = this.view.toMap(this.view.middle());
      this.view.width = window.innerWidth;
      this.view.height = window.innerHeight;
      if (this.fitted) this.fit(0);
      else this.view.place(this.view.limited(this.view.scale), middle, this.view.middle());
      this.repaint();
    }

    repaint() {
      this.plan.repaint(this.view);
      this.draw();
    }

    draw() {
      this.plan.draw(this.view);
      this.dot.draw(this.view);
    }

    // The map point moves to the screen point while the scale changes.
    glide(scale, mapPoint, screenPoint, milliseconds, by = 'hand') {
      const from = this.view.toScreen(mapPoint);
      const start = this.view.scale;
      this.goal = scale;
      this.gliding = by;
      this.animator.stop('fling');
      this.animator.run('view', milliseconds, (part) => {
        const point = { x: mix(from.x, screenPoint.x, part), y: mix(from.y, screenPoint.y, part) };
        this.view.place(part === 1 ? scale : start * Math.pow(scale / start, part), mapPoint, point);
      });
    }

    fit(milliseconds) {
      this.fitted = true;
      this.glide(this.view.fitScale(), this.view.sheetMiddle(), this.view.middle(), milliseconds);
    }

    // Zooming on leaves the dot to itself only when it pushes it off the screen.
    zoom(factor, point) {
      const base = this.animator.isRunning('view') ? this.goal : this.view.scale;
      const scale = this.view.limited(base * factor);
      if (scale <= this.view.fitScale()) {
        this.fit(ZOOM_MS);
        return;
      }
      this.fitted = false;
      const growth = scale / this.view.scale;
      const dot = this.dot.at && this.view.toScreen(this.dot.at);
      if (dot && !this.view.contains({ x: mix(point.x, dot.x, growth), y: mix(point.y, dot.y, growth) }, 0)) this.following = false;
      this.glide(scale, this.view.toMap(point), point, ZOOM_MS);
    }

    grab() {
      this.animator.stop('view');
      $('#map').addClass('grabbed');
      return this.animator.stop('fling');
    }

    touched(point) {
      return this.view.toMap(point);
    }

    drag(before, now, factor) {
      this.following = this.fitted = false;
      this.view.place(this.view.limited(this.view.scale * factor), this.view.toMap(before), now);
      this.animator.invalidate();
    }

    // A finger's map runs on for a moment, as far as the speed carries it; a mouse lets go where it is.
    release(speed, byMouse) {
      $('#map').removeClass('grabbed');
      if (!byMouse && Math.hypot(speed.x, speed.y) > 0.2) this.fling(speed);
    }

    fling(speed) {
      const reach = 250; // the distance, in milliseconds at that speed
      const anchor = this.view.toMap(this.view.middle());
      const from = this.view.middle();
      this.animator.run('fling', 3 * reach, (part) => {
        this.view.place(this.view.scale, anchor, { x: from.x + speed.x * reach * part, y: from.y + speed.y * reach * part });
      });
    }

    tap(tap) {
      $('#map').removeClass('grabbed');
      this.taps.add(tap);
    }

    report(point) {
      const { width, height } = this.view.sheet;
      if (point.x >= 0 && point.y >= 0 && point.x <= width && point.y <= height) platform.reportTap(point);
    }

    key(event) {
      if (event.altKey || event.ctrlKey || event.metaKey) return;
      const step = { ArrowLeft: [1, 0], ArrowRight: [-1, 0], ArrowUp: [0, 1], ArrowDown: [0, -1] }[event.originalEvent.key];
      const factor = { '+': 1.6, '=': 1.6, '-': 1 / 1.6, _: 1 / 1.6 }[event.originalEvent.key];
      if (step) this.shift(96 * step[0], 96 * step[1]);
      else if (factor) this.zoom(factor, this.view.middle());
      else if (event.originalEvent.key === '0') this.fit(GLIDE_MS / 2);
      else return;
      event.preventDefault();
    }

    shift(x, y) {
      this.following = this.fitted = false;
      const middle = this.view.middle();
      this.glide(this.view.scale, this.view.toMap(middle), { x: middle.x + x, y: middle.y + y }, 150);
    }

    setDot(position, smooth) {
      this.dot.update(position, this.animator, smooth);
      if (this.following && this.gestures.isIdle()) this.keepInSight(position);
    }

    // Calm: the map follows when the dot comes near the edge of the screen, and rests while all of it is shown.
    keepInSight(position) {
      const gliding = this.animator.isRunning('view');
      if (gliding && this.gliding === 'hand') return;
      if (!gliding && (this.view.showsAll() || this.view.contains(this.view.toScreen(position), 0.15))) return;
      this.glide(gliding ? this.goal : this.view.scale, position, this.view.middle(), GLIDE_MS, 'dot');
    }

    locate(position) {
      this.following = true;
      this.fitted = false;
      this.dot.update(position, this.animator, true);
      this.glide(Math.max(this.view.scale, this.view.nearScale()), position, this.view.middle(), GLIDE_MS, 'dot');
    }

    highlight(area) {
      this.plan.areas = area.length < 3 ? [] : [...this.plan.areas, area].slice(-MOST_AREAS);
      if (area.length >= 3) this.bringIntoSight(area);
      $('#news').text(area.length < 3 ? 'No area is highlighted.' : 'An area is highlighted.');
      this.repaint();
    }

    bringIntoSight(area) {
      const xs = area.map((point) => point.x);
      const ys = area.map((point) => point.y);
      const middle = { x: (Math.min(...xs) + Math.max(...xs)) / 2, y: (Math.min(...ys) + Math.max(...ys)) / 2 };
      if (this.view.contains(this.view.toScreen(middle), 0)) return;
      this.following = this.fitted = false;
      this.glide(this.view.scale, middle, this.view.middle(), GLIDE_MS);
    }
  }

  function readPosition(x, y, radius) {
    const position = { x: Number(x), y: Number(y), radius: clamp(Number(radius) || 0, 0, LARGEST_RADIUS) };
    return isCoordinate(position.x) && isCoordinate(position.y) ? position : null;
  }

  // "x,y x,y ": pieces that are no point are left out.
  function readArea(text) {
    const points = String(text).trim().split(/\s+/).slice(0, 10000).map((piece) => {
      const [x, y] = piece.split(',').map((part) => (part === '' ? NaN : Number(part)));
      return { x, y };
    });
    return points.filter((point) => isCoordinate(point.x) && isCoordinate(point.y));
  }

  const page = new MapPage(platform.parameters(window.location.href));
  page.start();

  // What the program calls.
  Object.assign(window, {
    hideDot() {
      page.dot.hide(page.animator);
    },
    // smooth: the dot glides to its place rather than jumping.
    setDotPosition(x, y, radius, smooth) {
      const position = readPosition(x, y, radius);
      if (position) page.setDot(position, smooth === true);
    },
    // The map comes to the dot, and follows it again.
    setDotPositionAutomatic(x, y, radius) {
      const position = readPosition(x, y, radius);
      if (position) page.locate(position);
    },
    // One more area of the map; an empty list takes them all away.
    highlightPolygon(points) {
      page.highlight(readArea(points));
    },
  });
})(jQuery, platform);
