// Serves the application without a network: its files are kept when it is installed.

const files = [/* files */];
const cacheName = 'todo-development';

self.addEventListener('install', (event) => {
  event.waitUntil(caches.open(cacheName).then((cache) => cache.addAll(files)).then(() => self.skipWaiting()));
});

self.addEventListener('activate', (event) => {
  const isOld = (name) => name.startsWith('todo-') && name !== cacheName;
  const clean = caches.keys().then((names) => Promise.all(names.filter(isOld).map((name) => caches.delete(name))));
  event.waitUntil(clean.then(() => self.clients.claim()));
});

self.addEventListener('fetch', (event) => {
  const { request } = event;
  if (request.method !== 'GET' || new URL(request.url).origin !== self.location.origin) return;
  event.respondWith(caches.match(request, { ignoreSearch: true }).then((kept) => kept ?? fetch(request)));
});
