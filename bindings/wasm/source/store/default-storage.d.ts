export { defaultStorage } from './storage-browser.js';
