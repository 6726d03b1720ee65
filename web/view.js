// The page of `vorla view`: the assembly's glTF with orbit controls, its product tree, its views
// and the selected occurrence's data. It asks its server for /model.glb and /assembly.json only.
import * as THREE from 'three';
import { OrbitControls } from 'three/addons/controls/OrbitControls.js';
import { GLTFLoader } from 'three/addons/loaders/GLTFLoader.js';

const container = document.getElementById('scene');
const status = document.getElementById('status');
const renderer = new THREE.WebGLRenderer({ antialias: true });
renderer.setPixelRatio(window.devicePixelRatio);
container.appendChild(renderer.domElement);

const scene = new THREE.Scene();
scene.background = new THREE.Color(0xeef0f3);
scene.add(new THREE.HemisphereLight(0xffffff, 0x8d8d8d, 2.0));
const camera = new THREE.PerspectiveCamera(45, 1, 0.01, 100);
const headlight = new THREE.DirectionalLight(0xffffff, 1.5);
headlight.position.set(0.5, 1, 1);
camera.add(headlight);
scene.add(camera);
const controls = new OrbitControls(camera, renderer.domElement);

// Shared by every highlighted primitive; colours of the document are never this cyan.
// Meshes without normals are drawn flat, as the loader draws them.
const lit = (flatShading) => new THREE.MeshStandardMaterial(
  { color: 0x00c8ff, emissive: 0x004060, side: THREE.DoubleSide, flatShading });
const highlight = { mesh: lit(false), flat: lit(true), line: new THREE.LineBasicMaterial({ color: 0x00c8ff }) };

const objects = [];  // by occurrence index: the glTF node's object
const rows = [];     // by occurrence index: the tree row
const occurrences = [];  // by occurrence index: its data from /assembly.json
const bounds = new THREE.Sphere(new THREE.Vector3(), 1);
let model = null;
let selected = null;
const saved = new Map();  // highlighted object -> its own material

// Frames are drawn on demand; their count tells a watcher the picture is up to date.
window.vorlaFrames = 0;
function render() {
  renderer.render(scene, camera);
  window.vorlaFrames += 1;
}
controls.addEventListener('change', render);

function resize() {
  const { clientWidth: width, clientHeight: height } = container;
  renderer.setSize(width, height);
  camera.aspect = width / Math.max(height, 1);
  camera.updateProjectionMatrix();
  render();
}
window.addEventListener('resize', resize);

// Near and far planes around the model as seen from where the camera now is.
function clip() {
  const distance = camera.position.distanceTo(bounds.center);
  camera.near = Math.max(bounds.radius / 1000, distance - 2 * bounds.radius, 1e-4);
  camera.far = distance + 4 * bounds.radius;
  camera.updateProjectionMatrix();
}

function fit() {
  const distance = bounds.radius / Math.sin(THREE.MathUtils.degToRad(camera.fov) / 2);
  const direction = new THREE.Vector3(1, 0.7, 1.3).normalize();
  camera.position.copy(bounds.center).addScaledVector(direction, distance);
  controls.target.copy(bounds.center);
  camera.lookAt(bounds.center);
  clip();
  controls.update();
  render();
}

// Moves the camera to where a view's glTF camera stands, looking the same way.
function goTo(view, cameras) {
  const source = cameras[view.camera];
  source.updateWorldMatrix(true, false);
  const position = new THREE.Vector3(), rotation = new THREE.Quaternion();
  source.matrixWorld.decompose(position, rotation, new THREE.Vector3());
  const forward = new THREE.Vector3(0, 0, -1).applyQuaternion(rotation);
  const distance = view.targetDistance > 0 ? view.targetDistance : position.distanceTo(bounds.center);
  if (source.isPerspectiveCamera) camera.fov = source.fov;
  camera.position.copy(position);
  controls.target.copy(position).addScaledVector(forward, distance);
  camera.up.set(0, 1, 0).applyQuaternion(rotation);
  camera.lookAt(controls.target);
  camera.up.set(0, 1, 0);  // orbiting stays about the vertical
  clip();
  controls.update();
  render();
}

function select(index) {
  for (const [object, material] of saved) object.material = material;
  saved.clear();
  if (selected !== null) rows[selected].classList.remove('selected');
  selected = index;
  showDetails(index === null ? null : occurrences[index]);
  if (index !== null) {
    rows[index].classList.add('selected');
    rows[index].scrollIntoView({ block: 'nearest' });
    objects[index]?.traverse((object) => {
      if (!object.isMesh && !object.isLine) return;
      saved.set(object, object.material);
      object.material = !object.isMesh ? highlight.line
        : object.material.flatShading ? highlight.flat : highlight.mesh;
    });
  }
  render();
}

function showDetails(o) {
  const details = document.getElementById('details');
  details.replaceChildren();
  if (!o) return;
  const add = (term, text) => {
    const dt = document.createElement('dt');
    const dd = document.createElement('dd');
    dt.textContent = term;
    dd.textContent = text;
    details.append(dt, dd);
  };
  if (o.instanceId !== undefined) add('instance', `${o.name} [${o.instanceId}]`);
  add('reference', `${o.reference} [${o.referenceId}]`);
  add('document', o.file || o.document);
  // Rows of the placement: the linear part's columns are m[0..2], m[3..5], m[6..8].
  const m = o.matrix.map((x) => (Math.abs(x) < 1e-12 ? 0 : x).toPrecision(5).padStart(10));
  add('matrix', [0, 1, 2].map((r) => `${m[r]}${m[3 + r]}${m[6 + r]} |${m[9 + r]}`).join('\n'));
  add('representation', o.representations.map((r) => `${r.name} (${r.docType})`).join('\n') || 'none');
  if (o.problem) add('problem', o.problem);
}

function addRows(node, depth, list) {
  occurrences[node.occurrence] = node;
  const li = document.createElement('li');
  li.style.paddingLeft = `${4 + 14 * depth}px`;
  li.textContent = node.name || node.reference;
  if (node.name) {
    const ref = document.createElement('span');
    ref.className = 'ref';
    ref.textContent = node.reference;
    li.append(ref);
  }
  li.dataset.occurrence = node.occurrence;
  li.addEventListener('click', () => select(node.occurrence));
  rows[node.occurrence] = li;
  list.append(li);
  for (const child of node.children) addRows(child, depth + 1, list);
}

document.getElementById('search').addEventListener('input', (event) => {
  const words = event.target.value.trim().toLowerCase();
  occurrences.forEach((o, index) => {
    const text = `${o.name} ${o.reference}`.toLowerCase();
    rows[index].hidden = words !== '' && !text.includes(words);
  });
});

// A click that did not drag selects the occurrence under the pointer, or nothing.
let pressedAt = null;
renderer.domElement.addEventListener('pointerdown', (e) => { pressedAt = [e.clientX, e.clientY]; });
renderer.domElement.addEventListener('pointerup', (e) => {
  if (!model || !pressedAt || Math.hypot(e.clientX - pressedAt[0], e.clientY - pressedAt[1]) > 4) return;
  const box = renderer.domElement.getBoundingClientRect();
  const pointer = new THREE.Vector2(((e.clientX - box.left) / box.width) * 2 - 1,
                                    -((e.clientY - box.top) / box.height) * 2 + 1);
  const raycaster = new THREE.Raycaster();
  raycaster.params.Line.threshold = bounds.radius / 200;
  raycaster.setFromCamera(pointer, camera);
  let hit = raycaster.intersectObject(model, true)[0]?.object;
  while (hit && hit.userData.occurrence === undefined) hit = hit.parent;
  select(hit ? hit.userData.occurrence : null);
});

async function load() {
  const [assembly, gltf] = await Promise.all([
    fetch('/assembly.json').then((r) => r.json()),
    new GLTFLoader().loadAsync('/model.glb'),
  ]);
  document.title = `${assembly.file} - vorla view`;
  document.getElementById('title').textContent = assembly.file;
  addRows(assembly.tree, 0, document.getElementById('tree'));
  model = gltf.scene;
  model.traverse((object) => {
    if (object.userData.occurrence !== undefined) objects[object.userData.occurrence] = object;
  });
  scene.add(model);
  const box = new THREE.Box3().setFromObject(model);
  if (!box.isEmpty()) box.getBoundingSphere(bounds);
  if (bounds.radius <= 0) bounds.radius = 1;
  const size = 4 * bounds.radius;
  const grid = new THREE.GridHelper(size, 20, 0xb0b0b0, 0xd8d8d8);
  grid.position.set(bounds.center.x, box.isEmpty() ? 0 : box.min.y, bounds.center.z);
  scene.add(grid);

  const views = document.getElementById('views');
  const fitButton = document.createElement('button');
  fitButton.textContent = 'Fit';
  fitButton.addEventListener('click', () => { camera.fov = 45; fit(); });
  views.append(fitButton);
  for (const view of assembly.views) {
    const button = document.createElement('button');
    button.textContent = view.name || `view ${view.id}`;
    button.title = view.description;
    button.dataset.view = view.id;
    if (view.camera === undefined) {
      button.disabled = true;
      button.title = 'This view has no camera that can be shown';
    } else {
      button.addEventListener('click', () => goTo(view, gltf.cameras));
    }
    views.append(button);
  }
  status.hidden = true;
  resize();
  fit();
}

load().catch((error) => {
  status.textContent = `The model cannot be shown: ${error.message}`;
});
